// OpenSSL's calls that take or return a time_t are off limits. The library
// is built with a 64-bit time_t everywhere, while OpenSSL on a 32-bit
// controller may be built with a 32-bit one: such a call would pass the
// wrong width without a warning. Dates go through text and ASN1_TIME
// instead. Included after OpenSSL's headers, whose declarations must stay
// legal.
#pragma once

#pragma GCC poison ASN1_TIME_set ASN1_TIME_adj ASN1_TIME_cmp_time_t
#pragma GCC poison ASN1_UTCTIME_set ASN1_UTCTIME_adj ASN1_UTCTIME_cmp_time_t
#pragma GCC poison ASN1_GENERALIZEDTIME_set ASN1_GENERALIZEDTIME_adj
#pragma GCC poison X509_cmp_time X509_time_adj X509_time_adj_ex OPENSSL_gmtime
#pragma GCC poison X509_VERIFY_PARAM_set_time X509_VERIFY_PARAM_get_time X509_STORE_CTX_set_time
