#include "info_format.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "cert_type.h"
#include "csr_request.h"
#include "json_writer.h"
#include "frame/field_text.h"

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
    AppendRow(out, kIndent, "CN", FieldView(name.szCommonName));
    AppendRow(out, kIndent, "O", FieldView(name.szOrganisation));
    AppendRow(out, kIndent, "OU", FieldView(name.szOrganisationUnit));
    AppendRow(out, kIndent, "L", FieldView(name.szLocalityName));
    AppendRow(out, kIndent, "ST", FieldView(name.szStateName));
    AppendRow(out, kIndent, "C", FieldView(name.szCountryCode));
    AppendRow(out, kIndent, "Email", FieldView(name.szEmailAddress));
}

void WriteName(JsonWriter &json, std::string_view key, const SSLCertGenParam &name) {
    json.Key(key);
    json.BeginObject();
    json.Uint("uiKeyLength", name.uiKeyLength);
    json.String("szCommonName", FieldView(name.szCommonName));
    json.String("szOrganisation", FieldView(name.szOrganisation));
    json.String("szOrganisationUnit", FieldView(name.szOrganisationUnit));
    json.String("szLocalityName", FieldView(name.szLocalityName));
    json.String("szStateName", FieldView(name.szStateName));
    json.String("szCountryCode", FieldView(name.szCountryCode));
    json.String("szEmailAddress", FieldView(name.szEmailAddress));
    json.Uint("uiValidDays", name.uiValidDays);
    json.EndObject();
}

void WriteFileInfo(JsonWriter &json, const SSLCertKeyFileInfo &files) {
    json.Key("stKeyFileInfo");
    json.BeginObject();
    json.Uint("ucCertType", uint32_t{files.ucCertType});
    json.String("szCertFileTime", FieldView(files.szCertFileTime));
    json.String("szKeyFileTime", FieldView(files.szKeyFileTime));
    json.EndObject();
}

void WriteConfig(JsonWriter &json, const SSLConfig &config) {
    json.Key("stSSLConfig");
    json.BeginObject();
    json.Uint("uiPublicKeyLen", config.uiPublicKeyLen);
    json.String("szVersion", FieldView(config.szVersion));
    json.String("szSerialNum", FieldView(config.szSerialNum));
    json.String("szSigAlgorithm", FieldView(config.szSigAlgorithm));
    json.String("szPublicKey", FieldView(config.szPublicKey));
    json.String("szStartDate", FieldView(config.szStartDate));
    json.String("szExpDate", FieldView(config.szExpDate));
    json.String("szSSLServer", FieldView(config.szSSLServer));
    json.String("szKeyUsage", FieldView(config.szKeyUsage));
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
    AppendRow(out, "", "Certificate file time", FieldView(files.szCertFileTime));
    AppendRow(out, "", "Key file time", FieldView(files.szKeyFileTime));
    out += '\n';

    AppendRow(out, "", "Version", FieldView(config.szVersion));
    AppendRow(out, "", "Serial number", FieldView(config.szSerialNum));
    AppendRow(out, "", "Signature algorithm", FieldView(config.szSigAlgorithm));
    AppendRow(out, "", "Public key", FieldView(config.szPublicKey));
    AppendRow(out, "", "Public key length (bits)", std::to_string(config.uiPublicKeyLen));
    AppendRow(out, "", "Valid from", FieldView(config.szStartDate));
    AppendRow(out, "", "Valid until", FieldView(config.szExpDate));
    AppendRow(out, "", "SSL server", FieldView(config.szSSLServer));
    AppendRow(out, "", "Key usage", FieldView(config.szKeyUsage));
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

namespace {

std::string_view AltNameTypeText(uint32_t type) {
    switch (type) {
    case SSLCERT_EXT_ALT_NAME_DNS:
        return "DNS";
    case SSLCERT_EXT_ALT_NAME_IP:
        return "IP";
    default:
        return "unknown";
    }
}

// The entries the request holds, never more than its array.
uint32_t AltNameCount(const SSLCertRequest &request) {
    return std::min(request.uiAltNameCount, SSLCERT_EXT_MAX_ALT_NAMES);
}

} // namespace

std::string FormatRequestText(const SSLCertRequest &request) {
    std::string out;
    AppendName(out, "Subject", SubjectOf(request));
    AppendRow(out, "", "Key",
              KeyTypeName(request.uiKeyAlgorithm, request.uiKeyBitLength, request.uiKeyCurve));
    out += "Names:\n";
    for (uint32_t i = 0; i < AltNameCount(request); ++i) {
        const SSLCertAltName &entry = request.astAltNames[i];
        AppendRow(out, "  ", AltNameTypeText(entry.uiType), FieldView(entry.szName));
    }
    return out;
}

std::string FormatRequestJson(const SSLCertRequest &request, std::string_view pem) {
    JsonWriter json;
    json.BeginObject();
    json.String("szCommonName", FieldView(request.szCommonName));
    json.String("szOrganisation", FieldView(request.szOrganisation));
    json.String("szOrganisationUnit", FieldView(request.szOrganisationUnit));
    json.String("szLocalityName", FieldView(request.szLocalityName));
    json.String("szStateName", FieldView(request.szStateName));
    json.String("szCountryCode", FieldView(request.szCountryCode));
    json.String("szEmailAddress", FieldView(request.szEmailAddress));
    json.Uint("uiKeyAlgorithm", request.uiKeyAlgorithm);
    json.Uint("uiKeyBitLength", request.uiKeyBitLength);
    json.Uint("uiKeyCurve", request.uiKeyCurve);
    json.String("key",
                KeyTypeName(request.uiKeyAlgorithm, request.uiKeyBitLength, request.uiKeyCurve));
    json.Key("astAltNames");
    json.BeginArray();
    for (uint32_t i = 0; i < AltNameCount(request); ++i) {
        json.BeginObject();
        json.Uint("uiType", request.astAltNames[i].uiType);
        json.String("szName", FieldView(request.astAltNames[i].szName));
        json.EndObject();
    }
    json.EndArray();
    if (!pem.empty()) json.String("pem", pem);
    json.EndObject();
    return json.Text() + '\n';
}

} // namespace bmccert::cli
