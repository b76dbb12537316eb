// Puts a recording wrapper of the openssl tool first on PATH, so that a
// test can assert the exact command lines the library runs while the real
// tool still does the work.
#pragma once

#include <string>
#include <vector>

namespace bmctest {

class RecordedOpenssl {
  public:
    RecordedOpenssl();
    ~RecordedOpenssl();
    RecordedOpenssl(const RecordedOpenssl &) = delete;
    RecordedOpenssl &operator=(const RecordedOpenssl &) = delete;

    // Every openssl command line run since the wrapper was put in place.
    [[nodiscard]] std::vector<std::string> Commands() const;

  private:
    std::string savedPath_;
};

} // namespace bmctest
