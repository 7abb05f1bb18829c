// The gate that everything passes which comes from outside and is used here: policies, content,
// software. With trusted signers it lets through what they signed for this purpose, in date and
// not older than what was accepted before; without, everything, with the signatures taken off.
//
// Lifetime: made for one package or more; its parts outlive it. Threads: one at a time in an agent,
// since it reads, changes and writes the record.
// Errors: the verdict. The record is written before a package is let through; where that fails, it
// is refused. What was accepted is not looked at again: no date ends it.
//
//   trust::Gate gate(files, clock, path, {signersFile, 1});
//   const trust::Verdict verdict = gate.check({trust::Kind::content, "qel"}, bytes);
//   if (verdict.accepted()) unpack(verdict.content);
#pragma once

#include <string>
#include <string_view>

#include "platform/fwd.h"
#include "trust/envelope.h"
#include "trust/record.h"
#include "trust/refusal.h"

namespace korvane::trust {

struct Signing {
  std::string signersFile;      // PEM; empty: nothing has to be signed
  unsigned minimumSigners = 1;  // a manifest may ask for more
};

struct Wanted {
  Kind kind = Kind::policy;
  std::string name = {};  // empty: of any name
};

struct Verdict {
  Refusal refusal;
  std::string_view content;  // of the package that was checked; empty when it is refused
  // What replaced the trusted signers meanwhile: the version, 0 for nothing, and who signs now. Also
  // with a refusal.
  uint64_t signersVersion = 0;
  std::string newSigners;

  bool accepted() const { return refusal.reason == Reason::none; }
};

class Gate {
 public:
  Gate(platform::Files& files, platform::Clock& clock, std::string recordPath, Signing signing)
      : _files(files),
        _clock(clock),
        _recordPath(std::move(recordPath)),
        _signing(std::move(signing)) {}

  Verdict check(const Wanted& wanted, std::string_view bytes);

 private:
  [[nodiscard]] bool refuse(Reason reason, std::initializer_list<std::string_view> text);
  [[nodiscard]] bool load();
  [[nodiscard]] bool judge(const Wanted& wanted, const Envelope& envelope);
  [[nodiscard]] bool takeSigners(const Statement& statement);
  [[nodiscard]] bool checkSigned(const Statement& statement, const Manifest& manifest);
  [[nodiscard]] bool checkDates(const Manifest& manifest);
  [[nodiscard]] bool checkVersion(const Manifest& manifest);
  void setTo(uint64_t& number, uint64_t value);
  // The mark of the manifest's kind and name, made when it is not there; null when there are too
  // many.
  VersionMark* markOf(const Manifest& manifest);

  platform::Files& _files;
  platform::Clock& _clock;
  const std::string _recordPath;
  const Signing _signing;
  Record _record;
  bool _changed = false;  // the record, so that it has to be written
  Certificates _trusted;
  Verdict _verdict;
};

}  // namespace korvane::trust
