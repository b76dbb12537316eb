#include "gen_request.h"

#include "lib_security_sslcert_ext.h"
#include "output.h"

namespace bmccert::cli {

std::optional<RefusedField> MakeRequest(const GenerateOptions &options, SSLCertGenParam &request) {
    request = SSLCertGenParam{};
    request.uiKeyLength = options.keyLength;
    request.uiValidDays = options.validDays;
    return PutSubject(options, request);
}

int ReportRefused(const RefusedField &refused, uint32_t code) {
    return ReportFailure(refused.option + " refused: " + refused.why, code);
}

RefusedField NameField(uint32_t field) {
    constexpr const char *kNameRule =
        "must not be blank or digits only, and may hold only letters, digits, space, '_', '.' "
        "and '-'";
    switch (field) {
    case SSLCERT_EXT_FIELD_KEY_TYPE:
        return {"--key-length", "must be 1024 or 2048"};
    case SSLCERT_EXT_FIELD_VALID_DAYS:
        return {"--days", "must be 1 to 5475"};
    case SSLCERT_EXT_FIELD_EMAIL:
        return {"--email", "must be an address such as name@host.example"};
    case SSLCERT_EXT_FIELD_COUNTRY:
        return {"--country", "must be two letters"};
    case SSLCERT_EXT_FIELD_COMMON_NAME:
        return {"--cn", kNameRule};
    case SSLCERT_EXT_FIELD_ORGANISATION:
        return {"--org", "must not be blank or digits only, and may hold only letters, digits, "
                         "space, '_', '.', ',' and '-'"};
    case SSLCERT_EXT_FIELD_UNIT:
        return {"--ou", kNameRule};
    case SSLCERT_EXT_FIELD_LOCALITY:
        return {"--locality", kNameRule};
    case SSLCERT_EXT_FIELD_STATE:
        return {"--state", kNameRule};
    default:
        return {"field " + std::to_string(field), "refused"};
    }
}

std::optional<RefusedField> FindRefusedField(const SSLCertGenParam &request) {
    uint32_t field = SSLCERT_EXT_FIELD_NONE;
    if (LIB_SECURITY_SSL_CheckGenParamField(&request, &field) == SSLCERT_OK) return std::nullopt;
    return NameField(field);
}

} // namespace bmccert::cli
