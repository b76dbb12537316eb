// The tool's two channels: results on standard output, its own failure
// line on standard error.
#pragma once

#include <cstdint>
#include <string_view>

#include "json_writer.h"
#include "lib_security_sslcert.h"

namespace bmccert::cli {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// Writes a result and flushes it; a result that did not reach its reader
// (a full disk, a closed pipe) is a failure, not a success.
[[nodiscard]] int WriteResult(std::string_view text);

// One JSON object and a newline as the result; members writes its members.
template <typename Members> [[nodiscard]] int WriteJsonObject(const Members &members) {
    JsonWriter writer;
    writer.BeginObject();
    members(writer);
    writer.EndObject();
    return WriteResult(writer.Text() + '\n');
}

// "bmccert: <what>: 0x%08X" on standard error; returns kExitFailure. With
// JSON results on, also one JSON object on standard output, so that a
// script reading it gets an answer on failure too:
//   {"error":{"code":"0x98000004","name":"SSLCERT_ERR_CERT_EXPIRED","message":"<what>"}}
// ("name" is empty for a code the tool does not know); not when a result
// was written already (an upload's task report), as stdout holds one
// object.
[[nodiscard]] int ReportFailure(std::string_view what, uint32_t code);

// A library call's outcome: its description on stdout, or with json
// {"result":code,"description":...}; the code is that of a success.
[[nodiscard]] int WriteOutcome(std::string_view description, uint32_t code, bool json);

// The outcome of a management call as the operation log would show it:
// the description on stdout (or as {"operation": ...}) on success; on a
// failure the description and the code on stderr.
[[nodiscard]] int Described(uint32_t result, const OperateDesc &desc, bool json);

// Turns the JSON error object of ReportFailure on; main does it for --json.
void ReportFailuresAsJson(bool on);

} // namespace bmccert::cli
