// The tool answers only on a controller (or in a sandboxed one): elsewhere
// the library would read nothing and report "no certificate", and the
// platform stand-in would make its state directory on the workstation.
#pragma once

namespace bmccert::cli {

// True when /conf/certs exists; otherwise says so on standard error,
// pointing at bmc-sandbox, and returns false. Touches nothing.
[[nodiscard]] bool RequireController();

} // namespace bmccert::cli
