// The random source of renewal timing: spreads a fleet's renewals, so it
// comes from OpenSSL's generator, not from a seed that controllers made
// alike share.
#pragma once

#include <optional>

namespace bmccert::acme {

// A uniform value in [0, 1) with 53 random bits; nothing when the
// generator fails.
[[nodiscard]] std::optional<double> UniformRandom();

} // namespace bmccert::acme
