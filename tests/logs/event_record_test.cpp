#include "logs/event_record.h"

#include <algorithm>
#include <random>

#include "logs/byte_buffer.h"
#include "logs/event_category.h"
#include "logs/field_map.h"
#include "logs/fixed_format_log.h"
#include "logs/record_summary.h"
#include "tests/logs/log_fixture.h"
#include "util/errors.h"

namespace korvane::tests {
namespace {

using testing::ElementsAreArray;

// The rules of event_record.h, a character at a time.
std::vector<std::string> splitPlainly(const std::string& line) {
  const size_t quotes = static_cast<size_t>(std::count(line.begin(), line.end(), '"'));
  const size_t lastWithPartner = quotes / 2 * 2;
  std::vector<std::string> fields(1);
  size_t seen = 0;
  for (const char c : line) {
    if (c == '"') ++seen;
    const bool inside = seen % 2 == 1 && seen <= lastWithPartner;
    if (c == ',' && !inside)
      fields.emplace_back();
    else
      fields.back() += c;
  }
  for (std::string& field : fields) {
    if (field.size() < 2 || field.front() != '"' || field.back() != '"') continue;
    field = field.substr(1, field.size() - 2);
    for (size_t at = 0; (at = field.find("\"\"", at)) != std::string::npos; ++at)
      field.erase(at, 1);
  }
  return fields;
}

// A line and its parsed record, at any distance from a block's beginning.
struct Parsed {
  explicit Parsed(const std::string& line, size_t shift = 0) {
    text.append(std::string(shift, '#') + line);
    result = parseEvent(text.data() + shift, line.size(), record);
  }
  std::vector<std::string> fields() const {
    std::vector<std::string> list;
    for (size_t n = 1; n <= record.fieldCount; ++n) list.emplace_back(record.field(n));
    return list;
  }
  ByteBuffer text;
  ParsedEvent record;
  ParseResult result;
};

class EventRecordTest : public LogFixture {};

TEST_F(EventRecordTest, SplitsAtCommasOutsideQuotes) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"PFIL", {"PFIL"}},
      {"PFIL,1,,x,", {"PFIL", "1", "", "x", ""}},
      {"PFIL,\"a,b\",c", {"PFIL", "a,b", "c"}},
      {"PFIL,\"say \"\"so\"\"\",\"\"", {"PFIL", "say \"so\"", ""}},
      {"PFIL,\"\"\"\"", {"PFIL", "\""}},
      {"PFIL,a\"b,c\"d,e", {"PFIL", "a\"b,c\"d", "e"}},
      {"PFIL,\"open,b,c", {"PFIL", "\"open", "b", "c"}},
      {"PFIL,\"a\"\",x", {"PFIL", "a\"", "x"}},
      {"PFIL, a , \"b\" ", {"PFIL", " a ", " \"b\" "}},
      {"\"PFIL\",1", {"PFIL", "1"}},
  };
  for (const auto& [line, fields] : cases) {
    const Parsed parsed(line);
    EXPECT_EQ(parsed.result, ParseResult::accepted) << line;
    EXPECT_EQ(splitPlainly(line), fields) << line;
    EXPECT_THAT(parsed.fields(), ElementsAreArray(fields)) << line;
  }
}

TEST_F(EventRecordTest, TakesTypesOfFourCharactersWithTheRightBeginning) {
  for (const char* type :
       {"TNET", "DACC", "PFIL", "MSTA", "AINF", "P\xC3\xA4il", "P\xF0\x9F\x98\x80i"})
    EXPECT_EQ(Parsed(std::string(type) + ",7,t,x").result, ParseResult::accepted) << type;
  EXPECT_EQ(events(10135), 0u);
  for (const char* type : {"", "PFI", "PFILE", "XFIL", "\"PFIL", "P\xC3\xA4ile", "\"P\"\"I\""})
    EXPECT_EQ(Parsed(std::string(type) + ",7,t,x").result, ParseResult::wrongType) << type;
  EXPECT_EQ(events(10135), 14u);
  EXPECT_EQ(inOwnLog(" Event Type is incorrect Event Type:PFI SeqNum:7 Time:t"), 1u);
}

TEST_F(EventRecordTest, AcceptsFortyNineFieldsAndThrowsForFifty) {
  const std::string most = "PFIL,1,t" + std::string(46, ',');
  EXPECT_EQ(Parsed(most).record.fieldCount, 49u);
  try {
    Parsed(most + ",");
    FAIL() << "50 fields were taken";
  } catch (const AgentError& error) {
    EXPECT_EQ(error.code(), 16);
    EXPECT_EQ(error.text().toUtf8(),
              " Corrupt Log: Too many fields size =50 Event Type:PFIL SeqNum:1 Time:t "
              "FixedFormatLog::parseLog");
  }
  EXPECT_EQ(inOwnLog("size = 50"), 1u);
}

TEST_F(EventRecordTest, KnowsCategoriesAndFilter) {
  const std::pair<const char*, int> masks[] = {{"*", 65535},      {"", 0},
                                               {"FILE", 0x3000},  {"MSTA,MCON", 0x5},
                                               {"MSTP", 0x8},     {"XMSTP", 0},
                                               {"PMNT", 0x800},   {"MSTA,MSTP", 0x9},
                                               {"MSTAMSTP", 0x1}, {"DEST,NET,ACCESS", 0x430}};
  for (const auto& [type, mask] : masks) EXPECT_EQ(eventCategory(type), mask) << type;
  const std::pair<const char*, bool> filter[] = {{"PFIL", true},  {"TNET", true},  {"PMNT", false},
                                                 {"DACC", false}, {"MSTA", false}, {"PCRE", true},
                                                 {"", true}};
  ForwardFilter memory;
  for (int round = 0; round < 2; ++round)
    for (const auto& [type, passes] : filter) {
      EXPECT_EQ(passesForwardFilter(type), passes) << type;
      EXPECT_EQ(memory.passes(type), passes) << type;
    }
}

TEST_F(EventRecordTest, ComparesFieldsAndNotTheirWriting) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"PFIL,1,a,x,y", "PFIL,2,b,x,y", true},
      {"PFIL,1,a,x,y", "PFIL,1,a,x,z", false},
      {"PFIL,1,a,x", "PREG,1,a,x", false},
      {"PFIL,1,a,\"x\",y", "PFIL,2,b,x,y", true},
      {"PFIL,1,a,\"x,y\"", "PFIL,2,b,x,y", false},
      {"PFIL,1,a,x", "PFIL,2,b,x,,", true},
      {"PFIL", "PFIL,2,b", true},
      {"PFIL,1,a,x", "PFIL,2,b,x,,y", false}};
  for (const auto& [a, b, same] : cases)
    EXPECT_EQ(sameEvent(Parsed(a).record, Parsed(b).record), same) << a << " " << b;
}

TEST_F(EventRecordTest, SummaryCountsAndTakesTheLastNumberAndTime) {
  RecordSummary summary;
  const Parsed first("PFIL,1,2026-11-21 10:15:30.123,x"),
      second("PFIL,20,2026-11-21 10:15:31.123,x"), third("PFIL,300,2026-11-21 10:15:32.123,x");
  summary.begin(first.record, 5);
  EXPECT_FALSE(summary.holdsRepeats());
  for (const Parsed* repeat : {&second, &third}) {
    EXPECT_TRUE(summary.matches(repeat->record));
    summary.fold(repeat->record);
  }
  EXPECT_EQ(summary.record().count, 3);
  EXPECT_EQ(summary.record().field(2), "300");
  EXPECT_EQ(summary.record().field(3), "2026-11-21 10:15:31.123");
  EXPECT_EQ(summary.record().lastTime, "2026-11-21 10:15:32.12");
  EXPECT_FALSE(summary.matches(Parsed("PFIL,4,t,y").record));
  EXPECT_TRUE(summary.matches(Parsed("PFIL,4,t,x").record));
}

// Random lines: the byte core, the plain rules and FixedFormatLog say the same, and the
// message's bytes are those of the pairs.
TEST_F(EventRecordTest, CoreAndAdaptersAgreeOnRandomLines) {
  std::mt19937 random(7);
  static constexpr const char* kPieces[] = {
      ",", ",", ",", "\"", "\"", "\"\"", "a", "bc", " ", "=", "1234567890123456", "\xC3\xA9", "\r"};
  for (int round = 0; round < 3000; ++round) {
    std::string line = "PFIL";
    for (auto pieces = random() % 60; pieces > 0; --pieces)
      line += kPieces[random() % std::size(kPieces)];
    const auto plain = splitPlainly(line);
    if (plain.size() > kMaxFields) {
      EXPECT_THROW(Parsed{line}, AgentError);
      continue;
    }
    Parsed parsed(line, random() % 20);
    FixedFormatLog log(HIDS_RT_LOG, settings().machine, fake.clock);
    const bool accepted = log.parseLog(line);
    ASSERT_EQ(accepted, parsed.result == ParseResult::accepted) << line;
    if (!accepted) continue;
    ASSERT_THAT(parsed.fields(), ElementsAreArray(plain)) << line;
    PropertyList map;
    log.getFieldMap(map);
    const RecordNotes notes =
        RecordNotes::take(settings().machine, "hidslog1rt", fake.clock.wallMs());
    ASSERT_EQ(fieldPairs(parsed.record, notes), map) << line;
    MessageBody body;
    appendRecord(body, parsed.record, notes);
    body.finish();
    ASSERT_EQ(body.bytes(), FakeDestination::bodyOf({map})) << line;
  }
}

}  // namespace
}  // namespace korvane::tests
