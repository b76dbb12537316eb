#include "controller_check.h"

#include <cstdio>

#include <unistd.h>

namespace bmccert::cli {

bool RequireController() {
    if (::access("/conf/certs", F_OK) == 0) return true;
    std::fputs("bmccert: /conf/certs does not exist: this is not a controller.\n"
               "Run the tool in a sandboxed controller instead: "
               "bmc-sandbox ROOT -- bmccert SUBCOMMAND ...\n",
               stderr);
    return false;
}

} // namespace bmccert::cli
