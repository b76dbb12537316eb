// Helpers of the stand-in's one-line-per-call logs (tasks.log, rpc.log,
// commands.log).
#pragma once

#include <cstddef>
#include <string>

namespace bmcsim {

// Appends text as diag.log writes a message: a backslash as "\\", a line
// feed as "\n", a tab as "\t"; stops at the terminator or after limit bytes.
void AppendEscaped(std::string &line, const char *text, size_t limit);
// Appends the bytes in lowercase hexadecimal, two digits a byte.
void AppendHex(std::string &line, const void *data, size_t size);
// Appends the line and a line feed to the log in one write, so that lines of
// threads and processes logging at once never mix. Failures are ignored:
// logging must not change the outcome of the call it records. A log the
// call creates gets the mode given.
void AppendLogLine(const char *path, std::string line, unsigned mode = 0644) noexcept;

} // namespace bmcsim
