#include "KivPlatform/KivRESTService/curl/CertificateErrors.h"

#include <algorithm>
#include <iterator>

namespace kiv {

namespace {

enum class Problem {
  otherHost,
  expired,
  notYetValid,
  selfSigned,
  unknownAuthority,
  revoked,
  other
};

struct Phrase {
  std::string_view text;
  Problem problem;
};

/// What the messages of OpenSSL and GnuTLS have in them, the first that is found counts. Those that
/// quote a name of the certificate come first: the name may hold any of the others.
constexpr Phrase phrases[] = {
    {"does not match target host name", Problem::otherHost},
    {"no alternative certificate subject name matches", Problem::otherHost},
    {"has expired", Problem::expired},
    {"expiration date has passed", Problem::expired},
    {"not yet valid", Problem::notYetValid},
    {"activation date has failed", Problem::notYetValid},
    {"in certificate chain", Problem::unknownAuthority},
    {"self signed certificate", Problem::selfSigned},
    {"self-signed certificate", Problem::selfSigned},
    {"issuer certificate", Problem::unknownAuthority},
    {"unable to verify the first certificate", Problem::unknownAuthority},
    {"certificate revoked", Problem::revoked},
};

/// OpenSSL's numbers, which never change, for where there is no message.
Problem problemOfNumber(long verifyResult) noexcept {
  switch (verifyResult) {
    case 9:
      return Problem::notYetValid;
    case 10:
      return Problem::expired;
    case 18:
      return Problem::selfSigned;
    case 2:
    case 19:
    case 20:
    case 21:
      return Problem::unknownAuthority;
    case 23:
      return Problem::revoked;
    case 62:
      return Problem::otherHost;
    default:
      return Problem::other;
  }
}

Problem problemOf(std::string_view detail, long verifyResult) {
  const auto* const found = std::find_if(
      std::begin(phrases), std::end(phrases),
      [&](const Phrase& phrase) { return detail.find(phrase.text) != std::string_view::npos; });
  if (found != std::end(phrases)) return found->problem;
  return detail.empty() ? problemOfNumber(verifyResult) : Problem::other;
}

}  // namespace

std::string certificateProblem(std::string_view server, std::string_view detail,
                               long verifyResult) {
  const std::string certificate = std::string("the certificate of ").append(server);
  switch (problemOf(detail, verifyResult)) {
    case Problem::otherHost:
      return std::string("the server's certificate is not for ").append(server);
    case Problem::expired:
      return certificate + " has expired";
    case Problem::notYetValid:
      return certificate + " is not valid yet";
    case Problem::selfSigned:
      return certificate + " is signed by itself, and not trusted here";
    case Problem::unknownAuthority:
      return certificate + " comes from an authority that is not trusted here";
    case Problem::revoked:
      return certificate + " has been revoked";
    case Problem::other:
      break;
  }
  const std::string failure = certificate + " could not be verified";
  return detail.empty() ? failure : failure + " (" + std::string(detail) + ")";
}

}  // namespace kiv
