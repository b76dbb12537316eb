// The configurations bmc-sandbox --services derives from the controller's
// stunnel.conf and lighttpd.conf: pure text, so tested without services.
#include "service_configs.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using sandbox::derive_tunnel_config;
using sandbox::derive_web_config;

const std::string kRun = "/var/lib/bmc-sim/run";

const std::string kTunnel = "; comment\n"
                            "foreground = no\n"
                            "pid = /var/run/stunnel.pid\n"
                            "output = /var/log/stunnel.log\n"
                            "setuid = stunnel4\n"
                            "cert = /conf/certs/server/user/actualcert.pem\n"
                            "key = /conf/certs/server/user/actualprivkey.pem\n"
                            "\n"
                            "[remote-console]\n"
                            "accept = :::7582\n"
                            "connect = 127.0.0.1:7578\n"
                            "[virtual-media]\n"
                            "  Accept = :::5124\n"
                            "connect = 127.0.0.1:5120\n";

bool has_line(const std::string &text, const std::string &line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

TEST(TunnelConfig, SectionsOnLoopbackPortsForegroundAndThePairAsItStands) {
    EXPECT_EQ(sandbox::tunnel_sections(kTunnel),
              (std::vector<std::string>{"remote-console", "virtual-media"}));
    std::string why;
    const auto out = derive_tunnel_config(
        kTunnel, kRun, {{"remote-console", 40001}, {"virtual-media", 40002}}, why);
    ASSERT_TRUE(out) << why;
    for (const char *line :
         {"[remote-console]\naccept = 127.0.0.1:40001", "[virtual-media]\naccept = 127.0.0.1:40002",
          "pid = /var/lib/bmc-sim/run/stunnel.pid", "output = /var/lib/bmc-sim/run/stunnel.log",
          "; bmc-sandbox: setuid = stunnel4", "cert = /conf/certs/server/user/actualcert.pem",
          "key = /conf/certs/server/user/actualprivkey.pem"})
        EXPECT_TRUE(has_line(*out, line)) << line;
    EXPECT_EQ(out->find(":::"), std::string::npos);
    // Global options come before the first section.
    EXPECT_LT(out->find("foreground = yes"), out->find("[remote-console]"));

    EXPECT_FALSE(derive_tunnel_config("accept = 443\n", kRun, {}, why));
    EXPECT_NE(why.find("accept"), std::string::npos);
}

const std::string kWeb = "server.modules = (\n"
                         "    \"mod_openssl\",\n"
                         ")\n"
                         "server.document-root = \"/usr/share/www\"\n"
                         "server.port = 80\n"
                         "server.pid-file = \"/var/run/lighttpd.pid\"\n"
                         "server.username = \"www\"\n"
                         "$SERVER[\"socket\"] == \":443\" {\n"
                         "    ssl.engine = \"enable\"\n"
                         "    ssl.pemfile = \"/conf/certs/server/server.pem\"\n"
                         "    ssl.ca-file = \"/conf/certs/client/ca.pem\"\n"
                         "    ssl.verifyclient.activate = \"disable\"\n"
                         "    ssl.verifyclient.depth = 3\n"
                         "}\n";

bool exists(const std::string &) {
    return true;
}
bool missing(const std::string &) {
    return false;
}

TEST(WebConfig, OneLoopbackListenerOnThePortAndTlsOptionsAsTheyAre) {
    std::string why;
    const auto out = derive_web_config(kWeb, kRun, 40003, exists, why);
    ASSERT_TRUE(out) << why;
    for (const char *line :
         {"server.bind = \"127.0.0.1\"", "server.port = 40003",
          "$SERVER[\"socket\"] == \"127.0.0.1:40003\" {", "# bmc-sandbox: server.port = 80",
          "# bmc-sandbox: server.pid-file = \"/var/run/lighttpd.pid\"",
          "# bmc-sandbox: server.username = \"www\"",
          "server.errorlog = \"/var/lib/bmc-sim/run/lighttpd.log\"",
          "server.document-root = \"/var/lib/bmc-sim/run/www\"",
          "    ssl.pemfile = \"/conf/certs/server/server.pem\"",
          "    ssl.ca-file = \"/conf/certs/client/ca.pem\"",
          "    ssl.verifyclient.activate = \"disable\"", "    ssl.verifyclient.depth = 3",
          "    \"mod_openssl\","})
        EXPECT_TRUE(has_line(*out, line)) << line;

    EXPECT_FALSE(
        derive_web_config("$SERVER[\"socket\"] == \":8080\" {\n}\n", kRun, 1, exists, why));
    EXPECT_NE(why.find(":8080"), std::string::npos);
}

TEST(WebConfig, MissingClientAuthorityIsDroppedOnlyWhileClientsAreNotVerified) {
    std::string why;
    const auto unverified = derive_web_config(kWeb, kRun, 1, missing, why);
    ASSERT_TRUE(unverified) << why;
    EXPECT_FALSE(has_line(*unverified, "    ssl.ca-file = \"/conf/certs/client/ca.pem\""));

    std::string verifying = kWeb;
    verifying.replace(verifying.find("\"disable\""), 9, "\"enable\"");
    const auto verified = derive_web_config(verifying, kRun, 1, missing, why);
    ASSERT_TRUE(verified) << why;
    EXPECT_TRUE(has_line(*verified, "    ssl.ca-file = \"/conf/certs/client/ca.pem\""));
}

} // namespace
