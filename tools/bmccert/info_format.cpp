#include "info_format.h"

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "cert_type.h"
#include "json_writer.h"
#include "record_text.h"

namespace bmccert::cli {
namespace {

constexpr std::size_t kLabelWidth = 26;

// Printable bytes pass, so that UTF-8 names show as the terminal renders
// them; control bytes and DEL become \xNN.
void AppendTerminalSafe(std::string &out, std::string_view text) {
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 0x20u && c != 0x7Fu) {
            out += ch;
            continue;
        }
        char escaped[5] = {};
        (void)std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
        out += escaped;
    }
}

void AppendRow(std::string &out, std::string_view indent, std::string_view label,
               std::string_view value) {
    out += indent;
    out += label;
    out += ':';
    if (!value.empty()) {
        const std::size_t used = indent.size() + label.size() + 1;
        out.append(used < kLabelWidth ? kLabelWidth - used : 1, ' ');
        AppendTerminalSafe(out, value);
    }
    out += '\n';
}

void AppendName(std::string &out, std::string_view heading, const SSLCertGenParam &name) {
    out += heading;
    out += ":\n";
    constexpr std::string_view kIndent = "  ";
    AppendRow(out, kIndent, "CN", FieldText(name.szCommonName));
    AppendRow(out, kIndent, "O", FieldText(name.szOrganisation));
    AppendRow(out, kIndent, "OU", FieldText(name.szOrganisationUnit));
    AppendRow(out, kIndent, "L", FieldText(name.szLocalityName));
    AppendRow(out, kIndent, "ST", FieldText(name.szStateName));
    AppendRow(out, kIndent, "C", FieldText(name.szCountryCode));
    AppendRow(out, kIndent, "Email", FieldText(name.szEmailAddress));
}

void Member(JsonWriter &json, std::string_view key, std::string_view text) {
    json.Key(key);
    json.String(text);
}

void Member(JsonWriter &json, std::string_view key, uint32_t number) {
    json.Key(key);
    json.Uint(number);
}

void WriteName(JsonWriter &json, std::string_view key, const SSLCertGenParam &name) {
    json.Key(key);
    json.BeginObject();
    Member(json, "uiKeyLength", name.uiKeyLength);
    Member(json, "szCommonName", FieldText(name.szCommonName));
    Member(json, "szOrganisation", FieldText(name.szOrganisation));
    Member(json, "szOrganisationUnit", FieldText(name.szOrganisationUnit));
    Member(json, "szLocalityName", FieldText(name.szLocalityName));
    Member(json, "szStateName", FieldText(name.szStateName));
    Member(json, "szCountryCode", FieldText(name.szCountryCode));
    Member(json, "szEmailAddress", FieldText(name.szEmailAddress));
    Member(json, "uiValidDays", name.uiValidDays);
    json.EndObject();
}

void WriteFileInfo(JsonWriter &json, const SSLCertKeyFileInfo &files) {
    json.Key("stKeyFileInfo");
    json.BeginObject();
    Member(json, "ucCertType", uint32_t{files.ucCertType});
    Member(json, "szCertFileTime", FieldText(files.szCertFileTime));
    Member(json, "szKeyFileTime", FieldText(files.szKeyFileTime));
    json.EndObject();
}

void WriteConfig(JsonWriter &json, const SSLConfig &config) {
    json.Key("stSSLConfig");
    json.BeginObject();
    Member(json, "uiPublicKeyLen", config.uiPublicKeyLen);
    Member(json, "szVersion", FieldText(config.szVersion));
    Member(json, "szSerialNum", FieldText(config.szSerialNum));
    Member(json, "szSigAlgorithm", FieldText(config.szSigAlgorithm));
    Member(json, "szPublicKey", FieldText(config.szPublicKey));
    Member(json, "szStartDate", FieldText(config.szStartDate));
    Member(json, "szExpDate", FieldText(config.szExpDate));
    Member(json, "szSSLServer", FieldText(config.szSSLServer));
    Member(json, "szKeyUsage", FieldText(config.szKeyUsage));
    WriteName(json, "stIssueFrom", config.stIssueFrom);
    WriteName(json, "stIssueTo", config.stIssueTo);
    json.EndObject();
}

} // namespace

std::string FormatInfoText(const SSLCertInfo &info) {
    const SSLCertKeyFileInfo &files = info.stKeyFileInfo;
    const SSLConfig &config = info.stSSLConfig;
    std::string out;

    std::string type = std::to_string(files.ucCertType);
    type += ' ';
    type += CertTypeName(files.ucCertType);
    AppendRow(out, "", "Type", type);
    AppendRow(out, "", "Certificate file time", FieldText(files.szCertFileTime));
    AppendRow(out, "", "Key file time", FieldText(files.szKeyFileTime));
    out += '\n';

    AppendRow(out, "", "Version", FieldText(config.szVersion));
    AppendRow(out, "", "Serial number", FieldText(config.szSerialNum));
    AppendRow(out, "", "Signature algorithm", FieldText(config.szSigAlgorithm));
    AppendRow(out, "", "Public key", FieldText(config.szPublicKey));
    AppendRow(out, "", "Public key length (bits)", std::to_string(config.uiPublicKeyLen));
    AppendRow(out, "", "Valid from", FieldText(config.szStartDate));
    AppendRow(out, "", "Valid until", FieldText(config.szExpDate));
    AppendRow(out, "", "SSL server", FieldText(config.szSSLServer));
    AppendRow(out, "", "Key usage", FieldText(config.szKeyUsage));
    out += '\n';

    AppendName(out, "Issuer", config.stIssueFrom);
    AppendName(out, "Subject", config.stIssueTo);
    return out;
}

std::string FormatInfoJson(const SSLCertInfo &info) {
    JsonWriter json;
    json.BeginObject();
    WriteFileInfo(json, info.stKeyFileInfo);
    WriteConfig(json, info.stSSLConfig);
    json.EndObject();
    return json.Text() + '\n';
}

} // namespace bmccert::cli
