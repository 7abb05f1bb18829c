// Why something was not accepted. The numbers are reported to the server and stay as they are.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace korvane::trust {

enum class Reason {
  none = 0,
  notSigned = 1101,
  damaged = 1102,         // no whole signed package, or no whole manifest
  badSignature = 1103,    // there is none, or a trusted signer's does not hold
  unknownSigner = 1104,   // none of the signers is trusted
  tooFewSigners = 1105,   // of those that are
  replacedSigner = 1106,  // the signers were trusted until others took their place
  otherPackage = 1107,    // it proves something else than was asked for
  notYetValid = 1108,
  expired = 1109,
  older = 1110,            // than a version that was accepted before
  mixed = 1111,            // entries are missing, or are there that the manifest does not have
  changed = 1112,          // an entry, or what lies around the entries, is another than signed
  signersUnusable = 1113,  // the file of the trusted signers
  recordUnusable = 1114,   // the record of what was accepted
};

struct Refusal {
  Reason reason = Reason::none;
  std::string text;

  int code() const { return static_cast<int>(reason); }
};

std::string numeral(uint64_t number);
// One text of several.
std::string joined(std::initializer_list<std::string_view> parts);

}  // namespace korvane::trust
