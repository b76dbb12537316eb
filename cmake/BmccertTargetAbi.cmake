# 32-bit targets: 64-bit time_t and off_t throughout, so that certificate
# dates past 2038 and files past 2 GiB read back whole. OpenSSL may still be
# built with a 32-bit time_t there, which is why no time_t is ever passed to
# it (see frame.h).
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
