// Result mapping, range checks and the hardware flag that selects a
// controller variant.
#include <cstdlib>

#include "sim_internal.h"

extern "C" uint32_t CC_GetValueByErrNum(uint32_t uiErrNum, const BMC_ErrCodeMap *pstMap,
                                        uint32_t uiMapCount, uint32_t uiDefault) {
    if (pstMap == nullptr) return uiDefault;
    for (uint32_t i = 0; i < uiMapCount; ++i) {
        if (pstMap[i].uiErrNum == uiErrNum) return pstMap[i].uiRetValue;
    }
    return uiDefault;
}

extern "C" int32_t CFGM_CheckContinueNum(uint32_t uiValue, uint32_t uiMin, uint32_t uiMax,
                                         uint32_t uiInclusive) {
    bool inside = uiInclusive != 0 ? uiMin <= uiValue && uiValue <= uiMax
                                   : uiMin < uiValue && uiValue < uiMax;
    return inside ? 0 : bmcsim::kFailSigned;
}

extern "C" uint32_t HW_LIB_GetOemFlag(void) {
    const char *value = std::getenv(BMCSIM_ENV_OEM_FLAG);
    if (value == nullptr) return 0;
    return bmcsim::ParseNumber(value).value_or(0);
}
