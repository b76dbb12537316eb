#include "tests/sslcert/recorded_tools.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/test_certs.h"

namespace bmctest {
namespace {

constexpr const char *kWrapperDir = "/var/lib/bmc-sim/recorded-bin";
constexpr const char *kCommandLog = "/var/lib/bmc-sim/recorded-bin/commands.log";

} // namespace

RecordedOpenssl::RecordedOpenssl() : savedPath_(std::getenv("PATH")) {
    std::filesystem::create_directories(kWrapperDir);
    const std::string wrapper = std::string(kWrapperDir) + "/openssl";
    WriteFile(wrapper, "#!/bin/sh\nprintf 'openssl %s\\n' \"$*\" >> " + std::string(kCommandLog) +
                           "\nexec /usr/bin/openssl \"$@\"\n");
    chmod(wrapper.c_str(), 0755);
    std::filesystem::remove(kCommandLog);
    setenv("PATH", (std::string(kWrapperDir) + ":" + savedPath_).c_str(), 1);
}

RecordedOpenssl::~RecordedOpenssl() {
    setenv("PATH", savedPath_.c_str(), 1);
}

std::vector<std::string> RecordedOpenssl::Commands() const {
    std::vector<std::string> lines;
    std::ifstream log(kCommandLog);
    for (std::string line; std::getline(log, line);)
        lines.push_back(line);
    return lines;
}

} // namespace bmctest
