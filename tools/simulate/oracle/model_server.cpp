#include "simulate/oracle/model_server.h"

#include <algorithm>

namespace korvane::simulation {

namespace {

// By the bits of the kinds.
const std::array<const char*, 9> kProperty = {"update.configuration",
                                              "update.policy",
                                              "update.software",
                                              "update.policy.ids",
                                              "update.configuration.ids",
                                              "update.qel",
                                              "update.ferrolyn.revocation",
                                              "update.ferrolyn.settings",
                                              "update.ferrolyn.vexvt"};
enum : size_t { kConfig, kPolicy, kSoftware, kIdsPolicy, kIdsConfig, kContent };

bool isTransient(int code) {
  return code == 300 || code == 301 || code == 400 || code == 600;
}

}  // namespace

ModelServer::ModelServer(uint64_t seed, Findings& findings, Policies& policies,
                         EventAccount& account)
    : _random(seed ^ 0x5E17E5), _findings(findings), _policies(policies), _account(account) {
  for (size_t kind = 0; kind < kUpdateKinds.size(); ++kind) _offers[kind].kind = kUpdateKinds[kind];
}

void ModelServer::lifeBegan() {
  _accepted = 0;
  _served = _fatalTold = false;
}

void ModelServer::changeWeather(int64_t nowMs) {
  const bool wasGood = _weather == Weather::good && _weatherEnds > 0;
  if (wasGood || _random.chance(20)) {
    _weather = static_cast<Weather>(_random.between(1, 6));
    _weatherEnds = nowMs + 1000 * _random.oneOf({5, 30, 60, 300, 900});
  } else {
    _weather = Weather::good;
    _weatherEnds = nowMs + 1000 * _random.oneOf({60, 600, 1800, 7200});
  }
  if (_weather == Weather::unknownAgent) {
    _refused.insert(_known.begin(), _known.end());
    _known.clear();
  }
}

bool ModelServer::isGood(int64_t nowMs) {
  if (_forcedGood) return true;
  while (nowMs >= _weatherEnds) changeWeather(nowMs);
  return _weather == Weather::good || _weather == Weather::unknownAgent;
}

WireAnswer ModelServer::exchange(const WireRequest& request, int64_t nowMs) {
  isGood(nowMs);
  Message message;
  Pending pending;
  WireAnswer answer;
  const std::string fault = readRequest(request.path, request.headers, request.body, message);
  const std::string base = request.path.substr(0, request.path.size() - message.word.size());
  if (_base.empty()) _base = base;
  pending.word = message.word;
  pending.guid = message.guid;
  if (!fault.empty() || base != _base) {
    wire(message.word + ": " + (fault.empty() ? "the path " + request.path : fault));
    answer = withCode(700, pending);
  } else {
    check(message);
    if (message.word == "log") pending.events = _account.sent(message.parts);
    if (_watch) _watch->requested(nowMs, message.word, message.guid);
    if (message.word == "result" && !message.parts.empty()) {
      const Pairs& pairs = message.parts[0].pairs;
      const std::string& type = valueOf(pairs, "result.type");
      const int code = std::atoi(valueOf(pairs, "result.errorcode").c_str());
      pending.status = type == "policy" && pairs.size() >= 10;
      if (type == "policy")
        _watch->status(nowMs, pairs, pending.status);
      else if (type != "app.data")
        _watch->result(nowMs, type, code);
    }
    if (message.word == "update" && !message.parts.empty())
      for (const char* const kind : {"configuration", "policy", "configuration.ids", "policy.ids"})
        pending.poll |= valueOf(message.parts[0].pairs, std::string("update.") + kind) == "true";
    answer = this->answer(message, pending, nowMs);
    if (message.word != "register" && message.word != "testConnection") _served = true;
  }
  answer.id = ++_lastId;
  _pending.clear();
  _pending[answer.id] = std::move(pending);
  return answer;
}

WireAnswer ModelServer::answer(const Message& message, Pending& pending, int64_t nowMs) {
  WireAnswer answer;
  const bool refused = _refused.count(message.guid) > 0;
  const bool good = isGood(nowMs) || (_weather == Weather::mixed && _random.chance(50));
  if (good) {
    answer = refused ? withCode(400, pending) : goodAnswer(message, pending);
    answer.delayMs = _random.chance(95) ? _random.between(1, 50) : _random.between(100, 2000);
  } else if (_weather == Weather::refused) {
    answer.fate = WireAnswer::Fate::refused;
  } else if (_weather == Weather::hanging) {
    answer = refused ? withCode(400, pending) : goodAnswer(message, pending);
    answer.delayMs = _random.between(1, 250000);
    if (_random.chance(60)) answer.fate = WireAnswer::Fate::hung;
  } else if (_weather == Weather::broken) {
    answer = brokenAnswer(message, pending);
  } else {
    answer = badAnswer(message, pending);
  }
  static const char* const fates[] = {"answered", "refused", "hung", "cut off", "lost"};
  ++_counts[std::string(fates[static_cast<int>(answer.fate)])];
  return answer;
}

WireAnswer ModelServer::goodAnswer(const Message& message, Pending& pending) {
  WireAnswer answer;
  const bool wide = _random.chance(10);
  if (wide) answer.headers = "Korvane-Charset: UTF-16LE\n";
  if (_random.chance(20))
    answer.headers += _random.chance(50) ? "Korvane-Error: 0\n" : "X-Other: 1\n";
  pending.understood = true;
  const Pairs none;
  const Pairs& pairs = message.parts.empty() ? none : message.parts[0].pairs;
  if (message.word == "register")
    answer.body = textSection({{"agent.id", registration(message, pending)}, {"note", "x"}}, wide);
  else if (message.word == "result" && valueOf(pairs, "result.type") == "policy" &&
           pairs.size() >= 10)
    answer.body = statusAnswer(pending, wide);
  else if (message.word == "result" && _random.chance(5))
    answer.body = textSection({{"update.policy", "true"},  // not for this kind of message
                               {"send.application.request", "true"},
                               {"send.application.requestID", "r-1"}},
                              wide);
  else if (message.word == "update")
    answer.body = updateAnswer(pairs, pending, wide);
  answer.body += std::string(_random.chance(5) ? "\n" : "") + kEndMark;
  ++_counts["good " + message.word];
  return answer;
}

std::string ModelServer::registration(const Message& message, Pending& pending) {
  std::string has;
  for (const Part& part : message.parts)
    if (has.empty()) has = valueOf(part.pairs, "agent.id");
  pending.given = _known.count(has) ? has : "agent-" + std::to_string(++_identities);
  _known.insert(pending.given);
  return pending.given;
}

std::string ModelServer::statusAnswer(Pending& pending, bool wide) {
  Pairs pairs;
  for (size_t kind = 0; kind < _offers.size(); ++kind) {
    static const std::array<int, 9> percent = {12, 12, 2, 4, 4, 2, 1, 1, 1};
    if (!_quiet && !_offers[kind].made && _random.chance(percent[kind]))
      _offers[kind] = makeOffer(kind);
    if (_offers[kind].made) pending.offers.push_back(kind);
    if (_offers[kind].made || _random.chance(10))
      pairs.emplace_back(kProperty[kind], _offers[kind].made ? "true" : "false");
  }
  if (_random.chance(3)) {
    pairs.emplace_back("send.application.request", "true");
    if (_random.chance(80)) pairs.emplace_back("send.application.requestID", "r-2");
  }
  std::string comment = _random.chance(10) ? "#" : "";
  if (!comment.empty()) pairs.insert(pairs.begin(), {"# comment", "true"});
  return pairs.empty() && _random.chance(50) ? "" : textSection(pairs, wide);
}

std::string ModelServer::updateAnswer(const Pairs& asked, Pending& pending, bool wide) {
  Pairs pairs;
  std::string binaries;
  bool configured = false;
  const bool withPolicy = _offers[kPolicy].made && valueOf(asked, kProperty[kPolicy]) == "true";
  for (size_t kind = 0; kind < _offers.size(); ++kind) {
    const Offer& offer = _offers[kind];
    if (valueOf(asked, kProperty[kind]) != "true") continue;
    const bool isConfig = kind == kConfig || kind == kIdsConfig;
    // Two configurations in one answer could not be told apart.
    if (!offer.made || (isConfig && configured)) {
      if (!isConfig && _random.chance(50)) pairs.emplace_back(kProperty[kind], "false");
      continue;
    }
    configured |= isConfig;
    pending.offers.push_back(kind);
    pairs.emplace_back(isConfig ? kProperty[kConfig] : kProperty[kind], "true");
    for (const auto& pair : offer.pairs)
      if (!withPolicy || !isConfig || !pair.first.starts_with("policy.")) pairs.push_back(pair);
    if (offer.hasBytes)
      binaries += binarySection(offer.bytes, _random.chance(80) ? "policy" : "zipdata");
  }
  return textSection(pairs, wide) + binaries;
}

ModelServer::Offer ModelServer::makeConfiguration(bool ids) {
  Offer offer;
  const std::string number = std::to_string(++_configurations);
  offer.pairs = {{"mod.time", "17952552" + number}, {"rid.applied", "config-" + number}};
  const auto set = [&](const char* name, const std::string& value) {
    for (const auto& [known, other] : offer.pairs)
      if (known == name) return;
    offer.pairs.emplace_back(name, value);
  };
  if (ids || _random.chance(10)) set("ids.alpha", number);
  if (ids && _random.chance(30)) set("Log.rule.1", "TFIL,TREG:1");
  if (ids) return offer;
  if (_pollingOff || _random.chance(4)) {
    _pollingOff = !_pollingOff;
    set("polling.enabled", _pollingOff ? "false" : "true");
  }
  for (int left = _random.between(1, 4); left > 0; --left) {
    switch (_random.below(10)) {
      case 0:
        set("polling.interval", std::to_string(_random.between(5, 120)));
        break;
      case 1:
        set("log.writer.limit", std::to_string(_random.between(1, 50)));
        break;
      case 2:
        set("log.reader.limit", std::to_string(_random.between(5, 300)));
        break;
      case 3:
        set("log.consolidate", _random.chance(50) ? "true" : "false");
        break;
      case 4:
        set("failback.interval", std::to_string(_random.between(60, 7200)));
        break;
      case 5:
        set("agent.connection.timeout", std::to_string(_random.between(5, 60)));
        break;
      case 6:
        set("x.note", "note " + number);
        break;
      case 7:
        set("log.consolidate.value", std::to_string(_random.between(1, 5)));
        break;
      case 8:
        set("use.builtin.policy", _random.chance(30) ? "true" : "false");
        break;
      default:
        set("policy.name", "Never " + number);
        set("policy.path", "/never");
    }
  }
  if (_random.chance(15)) {
    set("tcp.port", "70000");
    offer.good = false;
  }
  return offer;
}

ModelServer::Offer ModelServer::makeOffer(size_t kind) {
  Offer offer;
  const std::string number = std::to_string(_random.below(1000000));
  if (kind == kConfig || kind == kIdsConfig) {
    offer = makeConfiguration(kind == kIdsConfig);
  } else if (kind == kPolicy || kind == kIdsPolicy) {
    const bool ids = kind == kIdsPolicy;
    const int draw = _random.below(20);
    const SentPolicy& policy = _policies.make(draw < 2           ? PolicyKind::translatorRefuses
                                              : draw < 4 && !ids ? PolicyKind::driverRefuses
                                                                 : PolicyKind::good,
                                              ids);
    offer.pairs = {{ids ? "policy.name.ids" : "policy.name", policy.name}};
    if (draw != 18) offer.pairs.emplace_back(ids ? "policy.path.ids" : "policy.path", policy.path);
    offer.bytes = policy.source;
    offer.hasBytes = draw != 19;
    if (draw < 18) offer.policy = &policy;
  } else {
    offer.good = _random.chance(75);
    offer.hasBytes = true;
    offer.bytes = offer.good ? storedZip({{"data/" + number, "content " + number}}) : "PK, or not";
    if (kind == kSoftware)
      offer.pairs = {{"software.name", "agent " + number}, {"software.version", number}};
  }
  offer.kind = kUpdateKinds[kind];
  offer.made = true;
  return offer;
}

int ModelServer::waitingKinds() {
  if (_pollingOff && !_offers[kConfig].made) _offers[kConfig] = makeOffer(kConfig);
  int kinds = 0;
  for (size_t kind = 0; kind < kContent; ++kind)
    if (_offers[kind].made) kinds |= 1 << kind;
  return kinds;
}

WireAnswer ModelServer::withCode(int code, Pending& pending) {
  WireAnswer answer;
  const bool wide = _random.chance(20);
  answer.headers = "Korvane-Error: " + std::to_string(code) + "\n";
  if (wide) answer.headers += "Korvane-Charset: UTF-16LE\n";
  answer.body =
      (_random.chance(80) ? errorSection("the server says " + std::to_string(code), wide) : "") +
      kEndMark;
  answer.delayMs = _random.between(1, 50);
  pending.understood = true;
  pending.code = code;
  if (code == 400 && !pending.guid.empty()) {
    _known.erase(pending.guid);
    _refused.insert(pending.guid);
  }
  pending.fatal = pending.word == "register" && !isTransient(code);
  ++_counts["code " + std::to_string(code)];
  return answer;
}

// In the weathers mixed and codes: an answer of the protocol, but not the one wished for.
WireAnswer ModelServer::badAnswer(const Message& message, Pending& pending) {
  if (_weather == Weather::mixed && _random.chance(60)) return brokenAnswer(message, pending);
  int code = _random.oneOf({200, 200, 200, 300, 301, 302, 600, 700, 9999});
  if (_random.chance(5)) code = 400;
  if (_refused.count(message.guid)) code = 400;
  if (message.word == "register" && (_served || _random.chance(80)))
    code = _random.oneOf({300, 301, 400, 600});
  if (message.word == "register" && !_served && _random.chance(5)) {
    pending.fatal = true;
    WireAnswer answer;
    answer.body = textSection({{"agent.name", "no identity"}}) + kEndMark;
    ++_counts["no identity"];
    return answer;
  }
  return withCode(code, pending);
}

// What a broken server, a proxy or a line makes of an answer.
WireAnswer ModelServer::brokenAnswer(const Message& message, Pending& pending) {
  using Fate = WireAnswer::Fate;
  WireAnswer answer =
      _refused.count(message.guid) ? withCode(400, pending) : goodAnswer(message, pending);
  pending.understood = false;
  switch (_random.below(8)) {
    case 0:
      answer.fate = Fate::refused;
      break;
    case 1:
      answer.fate = Fate::hung;
      break;
    case 2:
      answer.fate = Fate::cutOff;
      answer.body.resize(static_cast<size_t>(_random.below(static_cast<int>(answer.body.size()))));
      break;
    case 3:
      answer.fate = Fate::lost;
      break;
    case 4: {
      const bool fatal = message.word == "register" && !_served && _random.chance(10);
      answer.status = message.word != "register" || fatal ? _random.oneOf({301, 302, 404, 500, 503})
                                                          : _random.oneOf({301, 400});
      pending.fatal = fatal;
      if (answer.status < 400) answer.headers += "Location: https://elsewhere.test/\n";
      break;
    }
    case 5:
      for (int line = 0; line < 600; ++line)
        answer.headers += "X-Line: " + std::to_string(line) + "\n";
      break;
    default:
      answer.body = spoiled(answer.body);
  }
  ++_counts["broken answers"];
  return answer;
}

std::string ModelServer::spoiled(const std::string& body) {
  std::string text = body.find("Data-Format=") == std::string::npos
                         ? textSection({{"some", "thing"}}) + kEndMark
                         : body;
  const size_t length = text.find("Data-Length=") + 12, end = text.find('\n', length);
  switch (_random.below(12)) {
    case 0:
      return "<html>\n<body>Please log in.</body>\n</html>\n";
    case 1: {  // more sections than a message may have
      std::string many;
      for (int i = 0; i <= 10000; ++i) many += textSection({});
      return many + kEndMark;
    }
    case 2:
    case 3:
    case 4: {
      static const char* const lengths[] = {"", "-5", "many", "99999999999999999999", "70000000"};
      return text.replace(length, end - length, lengths[_random.below(5)]);
    }
    default:  // within the last section
      const size_t last = text.rfind("Data-Format=") + 12;
      return text.substr(0, last + static_cast<size_t>(_random.below(
                                       static_cast<int>(text.rfind(kEndMark) - last - 2))));
  }
}

void ModelServer::told(const Offer& offer, int64_t nowMs) {
  if (offer.kind == "config" || offer.kind == "config.ids")
    _watch->configuration(nowMs, offer.pairs, offer.kind == "config.ids", !offer.good);
  else if (offer.kind == "policy" || offer.kind == "policy.ids")
    _watch->policy(nowMs, offer.policy, offer.kind == "policy.ids");
  else
    _watch->package(nowMs, offer.kind, offer.good);
}

void ModelServer::arrived(uint64_t id, int64_t nowMs) {
  const auto found = _pending.find(id);
  if (found == _pending.end()) return;
  const Pending pending = std::move(found->second);
  _pending.erase(found);
  if (pending.fatal) _fatalTold = true;
  if (!pending.understood) return;
  const int code = pending.code;
  if (pending.word == "log" && (code == 0 || code == 302 || code == 600))
    _account.settle(pending.events);
  if (code == 400 && !pending.guid.empty() && _watch) _watch->identityRefused(nowMs, pending.guid);
  if (!pending.given.empty() && _watch) _watch->identity(nowMs, pending.given);
  if (code == 0 || code == 200) _accepted += pending.status ? 1 : pending.poll ? 2 : 0;
  // Of several packages of content the agent drops those whose offer it has not read.
  const bool several = std::count_if(pending.offers.begin(), pending.offers.end(),
                                     [](size_t kind) { return kind >= kContent; }) > 1;
  if (pending.status) return;
  for (const size_t kind : pending.offers) {
    const Offer offer = std::move(_offers[kind]);
    _offers[kind] = {};
    _offers[kind].kind = kUpdateKinds[kind];
    if (_watch && !(several && kind >= kContent)) told(offer, nowMs);
  }
}

}  // namespace korvane::simulation
