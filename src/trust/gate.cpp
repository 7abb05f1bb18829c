#include "trust/gate.h"

#include <algorithm>
#include <cerrno>

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "trust/contents.h"
#include "util/dates.h"
#include "util/sha256.h"

namespace korvane::trust {
namespace {

constexpr uint64_t kMaxSignersFileBytes = 1 << 20;
constexpr size_t kDateLength = 10;

std::string dateOf(int64_t ms) {
  return formatIso8601(ms).substr(0, kDateLength);
}

std::string whatIs(const Manifest& manifest) {
  return joined({nameOf(manifest.kind), " \"", manifest.name, "\""});
}

bool has(const Certificates& all, const std::string& der) {
  return std::find(all.begin(), all.end(), der) != all.end();
}

// Those of `some` who do not sign any more.
void addReplaced(const Certificates& some, const Certificates& now, Certificates& out) {
  for (const std::string& der : some)
    if (out.size() < kMaxSigners && !has(now, der)) out.push_back(der);
}

}  // namespace

bool Gate::refuse(Reason reason, std::initializer_list<std::string_view> text) {
  _verdict.refusal = {reason, joined(text)};
  return false;
}

Verdict Gate::check(const Wanted& wanted, std::string_view bytes) {
  _verdict = {};
  const bool mustProve = !_signing.signersFile.empty();
  Envelope envelope;
  bool passes = true;
  if (!isEnvelope(bytes)) {
    if (mustProve)
      passes = refuse(Reason::notSigned, {"it is not signed, and update.signing.keys asks for it"});
    envelope.content = bytes;
  } else if (!parseEnvelope(bytes, envelope)) {
    passes = refuse(Reason::damaged, {"the signed package is damaged or cut off"});
  } else if (mustProve) {
    passes = judge(wanted, envelope);
  }
  if (passes) _verdict.content = envelope.content;
  return _verdict;
}

bool Gate::load() {
  _record = {};
  _changed = false;
  std::string pem;
  if (const int error =
          platform::readWholeFile(_files, _signing.signersFile, kMaxSignersFileBytes, pem))
    return refuse(Reason::signersUnusable, {"the file of trusted signers, ", _signing.signersFile,
                                            ", cannot be read, error ", std::to_string(error)});
  if (const int error = readRecord(_files, _recordPath, _record))
    return refuse(Reason::recordUnusable,
                  {_recordPath,
                   error == EBADMSG ? " is damaged; nothing is accepted before it is removed"
                                    : " cannot be read, error ",
                   error == EBADMSG ? "" : std::to_string(error)});
  const std::string anchor = sha256Hex(pem);
  if (_record.anchor != anchor) {
    _record.anchor = anchor;
    _record.signersVersion = 0;
    _record.signers.clear();
    _record.replaced.clear();
  }
  _trusted = _record.signers.empty() ? certificatesOf(pem) : _record.signers;
  return !_trusted.empty() ||
         refuse(Reason::signersUnusable,
                {"the file of trusted signers, ", _signing.signersFile, ", has no certificate"});
}

bool Gate::judge(const Wanted& wanted, const Envelope& envelope) {
  if (!load()) return false;
  bool good = true;
  for (size_t i = 0; good && i + 1 < envelope.statements.size(); ++i)
    good = takeSigners(envelope.statements[i]);
  Manifest manifest;
  if (good) {
    // Its signature comes first: of what strangers wrote nothing is read.
    const Statement& last = envelope.statements.back();
    good = checkSigned(last, {});
    const size_t line = good ? parseManifest(last.manifest, manifest) : 0;
    if (line != 0)
      good = refuse(Reason::damaged, {"manifest line ", numeral(line), " is malformed"});
    good = good && checkSigned(last, manifest);
  }
  if (good &&
      (manifest.kind != wanted.kind || (!wanted.name.empty() && manifest.name != wanted.name)))
    good = refuse(Reason::otherPackage,
                  {"it is ", whatIs(manifest), ", wanted is ", nameOf(wanted.kind),
                   wanted.name.empty() ? "" : " ", wanted.name});
  good =
      good && checkVersion(manifest) && checkContents(manifest, envelope.content, _verdict.refusal);
  if (good) {
    VersionMark* mark = markOf(manifest);
    if (mark) setTo(mark->version, manifest.version);
    good = mark || refuse(Reason::recordUnusable, {_recordPath, " has as many names as it may"});
  }
  if (!_changed) return good;
  const int error = writeRecord(_files, _recordPath, _record);
  if (error == 0 || !good) return good;
  return refuse(Reason::recordUnusable,
                {_recordPath, " cannot be written, error ", std::to_string(error)});
}

bool Gate::checkSigned(const Statement& statement, const Manifest& manifest) {
  const SignatureCheck found = checkSignature(statement.manifest, statement.signature, _trusted);
  const unsigned needed = std::max(_signing.minimumSigners, manifest.minimumSigners);
  // Before the manifest is read one signer is enough.
  if (!found.good.empty() && (manifest.version == 0 || found.good.size() >= needed)) return true;
  if (!found.good.empty())
    return refuse(Reason::tooFewSigners, {"it is signed by ", numeral(found.good.size()), " of ",
                                          numeral(needed), " signers"});
  if (!found.readable) return refuse(Reason::badSignature, {"the manifest has no signature"});
  if (!found.bad.empty())
    return refuse(Reason::badSignature, {"the signature of ", found.bad[0], " does not hold"});
  const SignatureCheck former =
      checkSignature(statement.manifest, statement.signature, _record.replaced);
  if (!former.good.empty())
    return refuse(Reason::replacedSigner,
                  {"it is signed by ", former.good[0], ", whom others have replaced"});
  return refuse(Reason::unknownSigner, {"it is signed by none of the trusted signers"});
}

bool Gate::takeSigners(const Statement& statement) {
  Manifest manifest;
  const size_t line = parseManifest(statement.manifest, manifest);
  if (line != 0 || manifest.kind != Kind::signers)
    return refuse(Reason::damaged, {"manifest line ", numeral(line == 0 ? 2 : line),
                                    " of a statement about signers is malformed"});
  if (manifest.version <= _record.signersVersion) return true;
  if (!checkSigned(statement, manifest) || !checkDates(manifest)) return false;
  if (manifest.signers.size() < _signing.minimumSigners)
    return refuse(Reason::tooFewSigners,
                  {"the statement about signers names ", numeral(manifest.signers.size()), " of ",
                   numeral(_signing.minimumSigners), " that are needed"});
  Certificates replaced;
  addReplaced(_trusted, manifest.signers, replaced);
  addReplaced(_record.replaced, manifest.signers, replaced);
  _record.replaced.swap(replaced);
  _changed = true;
  _record.signersVersion = _verdict.signersVersion = manifest.version;
  _record.signers = _trusted = manifest.signers;
  _verdict.newSigners.clear();
  for (const std::string& der : _trusted)
    _verdict.newSigners += joined({_verdict.newSigners.empty() ? "" : "; ", subjectOf(der)});
  return true;
}

bool Gate::checkDates(const Manifest& manifest) {
  const int64_t now = _clock.wallMs();
  if (now < manifest.notBeforeMs)
    return refuse(Reason::notYetValid, {"it is not valid before ", dateOf(manifest.notBeforeMs),
                                        ", today is ", dateOf(now)});
  if (now <= manifest.notAfterMs) return true;
  return refuse(Reason::expired, {"it expired on ", dateOf(manifest.notAfterMs)});
}

bool Gate::checkVersion(const Manifest& manifest) {
  const VersionMark* known = _record.find(manifest.kind, manifest.name);
  if (known && manifest.version < known->version)
    return refuse(Reason::older, {"version ", numeral(manifest.version), " is older than ",
                                  numeral(known->version), ", which was accepted before"});
  if (known && manifest.version <= known->expired)
    return refuse(Reason::expired, {"version ", numeral(known->expired),
                                    " expired before, whatever the clock says now"});
  if (checkDates(manifest)) return true;
  VersionMark* mark = _verdict.refusal.reason == Reason::expired ? markOf(manifest) : nullptr;
  if (mark) setTo(mark->expired, manifest.version);
  return false;
}

void Gate::setTo(uint64_t& number, uint64_t value) {
  _changed = _changed || number != value;
  number = value;
}

VersionMark* Gate::markOf(const Manifest& manifest) {
  if (VersionMark* known = _record.find(manifest.kind, manifest.name)) return known;
  if (_record.versions.size() == kMaxRecordedNames) return nullptr;
  VersionMark mark;
  mark.kind = manifest.kind;
  mark.name = manifest.name;
  _record.versions.push_back(std::move(mark));
  return &_record.versions.back();
}

}  // namespace korvane::trust
