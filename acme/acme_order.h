// One order from its creation to the certificate chain: identifiers from
// the request record, http-01 answered through the web server's challenge
// directory, finalised with the request of a key born for this order.
#pragma once

#include <string>

#include "acme/acme_session.h"

namespace bmccert::acme {

// 0 and the chain (PEM, leaf first), or the code that stopped the order.
// orderUrl is the order's URL as soon as the CA gave it; keyBorn tells
// whether a pending key was made for this order.
// replaces names the certificate the order replaces (its RFC 9773
// identifier; empty: none): sent where the CA offers renewal information,
// and left out again when the CA refuses the order with it.
[[nodiscard]] uint32_t RunOrder(Session &session, const SSLAcmeEnrollment &settings,
                                const std::string &replaces, std::string &orderUrl, bool &keyBorn,
                                std::string &chain);

// Removes every file left in the challenge directory (by a run that died).
void ClearChallengeFiles();

} // namespace bmccert::acme
