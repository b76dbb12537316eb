// The configurations bmc-sandbox --services derives from the controller's
// stunnel.conf and lighttpd.conf: pure text, so tested without services.
// That the services start and serve on them (their sections, ports and
// foreground mode, a fresh controller's missing client authority dropped)
// is the end-to-end tests' part; here, that they listen on loopback only
// and nothing they write lands outside the sandbox.
#include "service_configs.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const std::string kRun = "/var/lib/bmc-sim/run";

bool has_line(const std::string &text, const std::string &line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

TEST(TunnelConfig, EverySectionOnItsLoopbackPortAndNothingOutsideTheSandbox) {
    const std::string config = "foreground = no\n"
                               "pid = /var/run/stunnel.pid\n"
                               "output = /var/log/stunnel.log\n"
                               "setuid = stunnel4\n"
                               "[remote-console]\n"
                               "accept = :::7582\n"
                               "[virtual-media]\n"
                               "  Accept = :::5124\n";
    std::string why;
    const auto out = sandbox::derive_tunnel_config(
        config, kRun, {{"remote-console", 40001}, {"virtual-media", 40002}}, why);
    ASSERT_TRUE(out) << why;
    for (const char *line :
         {"[remote-console]\naccept = 127.0.0.1:40001", "[virtual-media]\naccept = 127.0.0.1:40002",
          "pid = /var/lib/bmc-sim/run/stunnel.pid", "output = /var/lib/bmc-sim/run/stunnel.log",
          "; bmc-sandbox: setuid = stunnel4"})
        EXPECT_TRUE(has_line(*out, line)) << line;
}

const std::string kWeb = "server.port = 80\n"
                         "server.pid-file = \"/var/run/lighttpd.pid\"\n"
                         "server.username = \"www\"\n"
                         "$SERVER[\"socket\"] == \":443\" {\n"
                         "    ssl.ca-file = \"/conf/certs/client/ca.pem\"\n"
                         "    ssl.verifyclient.activate = \"disable\"\n"
                         "}\n";

TEST(WebConfig, LoopbackListenersAndNothingOutsideTheSandbox) {
    std::string why;
    const auto out = sandbox::derive_web_config(
        kWeb, kRun, 40004, 40003, [](const std::string &) { return true; }, why);
    ASSERT_TRUE(out) << why;
    for (const char *line :
         {"server.bind = \"127.0.0.1\"", "server.port = 40004",
          "$SERVER[\"socket\"] == \"127.0.0.1:40003\" {", "# bmc-sandbox: server.port = 80",
          "# bmc-sandbox: server.pid-file = \"/var/run/lighttpd.pid\"",
          "# bmc-sandbox: server.username = \"www\"",
          "server.errorlog = \"/var/lib/bmc-sim/run/lighttpd.log\"",
          "server.document-root = \"/var/lib/bmc-sim/run/www\""})
        EXPECT_TRUE(has_line(*out, line)) << line;
}

} // namespace
