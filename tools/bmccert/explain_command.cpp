#include "explain_command.h"

#include <cstdio>
#include <string>

#include "lib_security_sslcert_ext.h"
#include "output.h"
#include "result_codes.h"

namespace bmccert::cli {

int RunExplain(std::string_view codeText) {
    const auto code = ParseResultCode(codeText);
    if (!code) {
        std::fprintf(stderr,
                     "bmccert: explain: '%.*s' is not a code such as 0x98000004, -1744830456 or "
                     "iRet=-1744830456\n",
                     static_cast<int>(codeText.size()), codeText.data());
        return kExitUsage;
    }
    const auto entry = FindResultCode(*code);
    if (!entry) {
        std::fprintf(stderr, "bmccert: explain: 0x%08X is not a result code of the library\n",
                     *code);
        return kExitFailure;
    }
    char head[16];
    std::snprintf(head, sizeof head, "0x%08X ", entry->code);
    std::string text =
        std::string(head) + std::string(entry->name) + ": " + std::string(entry->meaning) + "\n";
    // What to do, on a line of its own so that the first stays as scripts read it.
    if (const char *advice = nullptr;
        LIB_SECURITY_SSL_AdviseResult(entry->code, &advice) == SSLCERT_OK)
        text += "what to do: " + std::string(advice) + "\n";
    return WriteResult(text);
}

} // namespace bmccert::cli
