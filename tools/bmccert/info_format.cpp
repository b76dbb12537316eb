#include "info_format.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <utility>

#include "csr_request.h"
#include "json_writer.h"
#include "frame/cert_type_names.h"
#include "frame/field_text.h"

namespace bmccert::cli {
namespace {

constexpr std::size_t kLabelWidth = 26;

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

struct NameField {
    std::string_view label; // in the text form
    std::string_view key;   // in the JSON form
    std::string_view value;
};

// The texts of a name, a record's or a request's: their fields carry the
// same names.
template <typename Name> std::array<NameField, 7> NameFields(const Name &name) {
    return {{{"CN", "common_name", FieldView(name.szCommonName)},
             {"O", "organisation", FieldView(name.szOrganisation)},
             {"OU", "organisational_unit", FieldView(name.szOrganisationUnit)},
             {"L", "locality", FieldView(name.szLocalityName)},
             {"ST", "state", FieldView(name.szStateName)},
             {"C", "country", FieldView(name.szCountryCode)},
             {"Email", "email", FieldView(name.szEmailAddress)}}};
}

template <typename Name>
void AppendName(std::string &out, std::string_view heading, const Name &name) {
    out += heading;
    out += ":\n";
    for (const NameField &field : NameFields(name))
        AppendRow(out, "  ", field.label, field.value);
}

template <typename Name> void WriteName(JsonWriter &json, std::string_view key, const Name &name) {
    json.Key(key);
    json.BeginObject();
    for (const NameField &field : NameFields(name))
        json.String(field.key, field.value);
    json.EndObject();
}

// Seconds since the epoch of the record's ISO time ("2026-11-22T19:58:47Z");
// false for any other text.
bool EpochSeconds(std::string_view iso, int64_t &seconds) {
    std::tm parts{};
    const std::string text(iso);
    const char *end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    if (end == nullptr || *end != '\0') return false;
    seconds = static_cast<int64_t>(timegm(&parts));
    return true;
}

// A date as seconds since the epoch, and as its text under name_text.
void WriteDate(JsonWriter &json, std::string_view name, std::string_view iso, int64_t &seconds) {
    if (EpochSeconds(iso, seconds)) json.Int(name, seconds);
    json.String(std::string(name) + "_text", iso);
}

void WriteCertificate(JsonWriter &json, const SSLConfig &config, int64_t now) {
    json.Key("certificate");
    json.BeginObject();
    json.String("version", FieldView(config.szVersion));
    json.String("serial", FieldView(config.szSerialNum));
    json.String("signature_algorithm", FieldView(config.szSigAlgorithm));
    json.String("public_key", FieldView(config.szPublicKey));
    json.Uint("key_bits", config.uiPublicKeyLen);
    int64_t start = 0;
    int64_t expiry = 0;
    WriteDate(json, "not_before", FieldView(config.szStartDate), start);
    WriteDate(json, "not_after", FieldView(config.szExpDate), expiry);
    // Whole days, as days-left counts them: a day begun is not left.
    if (EpochSeconds(FieldView(config.szExpDate), expiry))
        json.Int("days_left",
                 expiry >= now ? (expiry - now) / 86400 : -((now - expiry + 86399) / 86400));
    json.String("ssl_server", FieldView(config.szSSLServer));
    json.String("key_usage", FieldView(config.szKeyUsage));
    WriteName(json, "issuer", config.stIssueFrom);
    WriteName(json, "subject", config.stIssueTo);
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

std::string FormatInfoJson(const SSLCertInfo &info, int64_t now) {
    const SSLCertKeyFileInfo &files = info.stKeyFileInfo;
    JsonWriter json;
    json.BeginObject();
    json.Uint("type", uint32_t{files.ucCertType});
    json.String("type_name", CertTypeName(files.ucCertType));
    json.String("cert_file_time", FieldView(files.szCertFileTime));
    json.String("key_file_time", FieldView(files.szKeyFileTime));
    WriteCertificate(json, info.stSSLConfig, now);
    json.EndObject();
    return json.Text() + '\n';
}

namespace {

// An alternative name's type in the text form and in the JSON form.
std::pair<std::string_view, std::string_view> AltNameType(uint32_t type) {
    switch (type) {
    case SSLCERT_EXT_ALT_NAME_DNS:
        return {"DNS", "dns"};
    case SSLCERT_EXT_ALT_NAME_IP:
        return {"IP", "ip"};
    default:
        return {"unknown", "unknown"};
    }
}

// The entries the request holds, never more than its array.
uint32_t AltNameCount(const SSLCertRequest &request) {
    return std::min(request.uiAltNameCount, SSLCERT_EXT_MAX_ALT_NAMES);
}

} // namespace

std::string FormatRequestText(const SSLCertRequest &request) {
    std::string out;
    AppendName(out, "Subject", request);
    AppendRow(out, "", "Key",
              KeyTypeName(request.uiKeyAlgorithm, request.uiKeyBitLength, request.uiKeyCurve));
    out += "Names:\n";
    for (uint32_t i = 0; i < AltNameCount(request); ++i) {
        const SSLCertAltName &entry = request.astAltNames[i];
        AppendRow(out, "  ", AltNameType(entry.uiType).first, FieldView(entry.szName));
    }
    return out;
}

std::string FormatRequestJson(const SSLCertRequest &request, std::string_view pem) {
    JsonWriter json;
    json.BeginObject();
    WriteName(json, "subject", request);
    json.String("key",
                KeyTypeName(request.uiKeyAlgorithm, request.uiKeyBitLength, request.uiKeyCurve));
    json.Key("alt_names");
    json.BeginArray();
    for (uint32_t i = 0; i < AltNameCount(request); ++i) {
        json.BeginObject();
        json.String("type", AltNameType(request.astAltNames[i].uiType).second);
        json.String("name", FieldView(request.astAltNames[i].szName));
        json.EndObject();
    }
    json.EndArray();
    if (!pem.empty()) json.String("pem", pem);
    json.EndObject();
    return json.Text() + '\n';
}

std::string IsoTimeText(int64_t seconds) {
    if (seconds == 0) return "none";
    const auto when = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[32] = {};
    if (gmtime_r(&when, &parts) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        return std::to_string(seconds);
    return text;
}

} // namespace bmccert::cli
