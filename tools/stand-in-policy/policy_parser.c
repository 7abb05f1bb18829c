#include "stand-in-policy/policy_model.h"

/* Where the reading stands. */
struct reader {
  const char* next;
  const char* end;
  uint32_t line;
};

static int fail(struct kvp_error* error, uint32_t line, const char* reason) {
  error->line = line;
  error->reason = reason;
  return 1;
}

static void clear(void* memory, size_t size) {
  volatile uint8_t* bytes = memory;
  while (size > 0) bytes[--size] = 0;
}

static int is_blank(char c) {
  return c == ' ' || c == '\t';
}

static struct kvp_slice trim(struct kvp_slice text) {
  while (text.size > 0 && is_blank(text.bytes[0])) {
    ++text.bytes;
    --text.size;
  }
  while (text.size > 0 && is_blank(text.bytes[text.size - 1])) --text.size;
  return text;
}

/* Cuts the first word off. */
static struct kvp_slice take_word(struct kvp_slice* text) {
  struct kvp_slice word = trim(*text);
  size_t length = 0;
  while (length < word.size && !is_blank(word.bytes[length])) ++length;
  text->bytes = word.bytes + length;
  text->size = word.size - length;
  *text = trim(*text);
  word.size = length;
  return word;
}

static int equals(struct kvp_slice text, const char* word) {
  size_t i = 0;
  while (i < text.size && word[i] != '\0' && text.bytes[i] == word[i]) ++i;
  return i == text.size && word[i] == '\0';
}

/* Reads one character; its length in bytes, or 0 when it is malformed. */
static size_t decode(const uint8_t* bytes, size_t size, uint32_t* out) {
  static const uint32_t smallest[5] = {0, 0, 0x80, 0x800, 0x10000};
  const uint8_t lead = bytes[0];
  const size_t length = lead < 0x80       ? 1
                        : lead >> 5 == 6  ? 2
                        : lead >> 4 == 14 ? 3
                        : lead >> 3 == 30 ? 4
                                          : 0;
  if (length == 0 || length > size) return 0;
  uint32_t code = length == 1 ? lead : (uint32_t)(lead & (0x7F >> length));
  for (size_t i = 1; i < length; ++i) {
    if ((bytes[i] & 0xC0) != 0x80) return 0;
    code = code << 6 | (bytes[i] & 0x3Fu);
  }
  if (code < smallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  *out = code;
  return length;
}

static void put_units(uint16_t* out, uint32_t code) {
  if (code < 0x10000) {
    out[0] = (uint16_t)code;
    return;
  }
  out[0] = (uint16_t)(0xD800 + ((code - 0x10000) >> 10));
  out[1] = (uint16_t)(0xDC00 + (code & 0x3FF));
}

int kvp_to_utf16(struct kvp_slice text, uint16_t* out, size_t room) {
  size_t units = 0;
  while (text.size > 0) {
    uint32_t code = 0;
    const size_t length = decode((const uint8_t*)text.bytes, text.size, &code);
    const size_t needed = code >= 0x10000 ? 2 : 1;
    if (length == 0 || code < 0x20 || code == 0x7F || units + needed >= room) return 1;
    if (out != NULL) put_units(out + units, code);
    units += needed;
    text.bytes += length;
    text.size -= length;
  }
  if (units >= room) return 1;
  if (out != NULL) out[units] = 0;
  return 0;
}

/* Takes the next line without its end; 0 when there is none. */
static int next_line(struct reader* reader, struct kvp_slice* line) {
  if (reader->next == reader->end) return 0;
  line->bytes = reader->next;
  while (reader->next != reader->end && *reader->next != '\n') ++reader->next;
  line->size = (size_t)(reader->next - line->bytes);
  if (line->size > 0 && line->bytes[line->size - 1] == '\r') --line->size;
  if (reader->next != reader->end) ++reader->next;
  ++reader->line;
  return 1;
}

static int parse_action(struct kvp_slice word, enum kvp_action* action) {
  static const struct {
    const char* word;
    enum kvp_action action;
  } actions[] = {
      {"deny", KVP_DENY}, {"allow", KVP_ALLOW}, {"log", KVP_LOG}, {"refuse", KVP_REFUSE}};
  for (size_t i = 0; i < sizeof actions / sizeof actions[0]; ++i) {
    if (!equals(word, actions[i].word)) continue;
    *action = actions[i].action;
    return 0;
  }
  return 1;
}

static int is_kind(struct kvp_slice word) {
  return equals(word, "file") || equals(word, "registry") || equals(word, "process") ||
         equals(word, "network");
}

int kvp_parse_rule(struct kvp_slice line, struct kvp_rule* rule, struct kvp_error* error) {
  struct kvp_slice rest = line;
  clear(rule, sizeof *rule);
  if (!equals(take_word(&rest), "rule")) return fail(error, 0, "not a rule");
  if (parse_action(take_word(&rest), &rule->action) != 0) return fail(error, 0, "unknown action");
  if (rule->action != KVP_REFUSE) {
    rule->kind = take_word(&rest);
    if (!is_kind(rule->kind)) return fail(error, 0, "unknown kind of resource");
    rule->set = take_word(&rest);
  }
  rule->pattern = rest;
  if (rest.size == 0) return fail(error, 0, "the rule is incomplete");
  return 0;
}

static int same_text(const uint16_t* left, const uint16_t* right) {
  while (*left != 0 && *left == *right) {
    ++left;
    ++right;
  }
  return *left == *right;
}

static int count_set(struct kvp_policy* policy, struct kvp_slice name, struct kvp_error* error) {
  uint16_t wanted[KVP_SET_UNITS + 1];
  uint32_t i = 0;
  if (kvp_to_utf16(name, wanted, KVP_SET_UNITS + 1) != 0)
    return fail(error, 0, "the process set's name is malformed or too long");
  while (i < policy->sets && !same_text(policy->set[i].name, wanted)) ++i;
  if (i == KVP_MAX_SETS) return fail(error, 0, "too many process sets");
  if (i == policy->sets) {
    ++policy->sets;
    kvp_to_utf16(name, policy->set[i].name, KVP_SET_UNITS + 1);
  }
  ++policy->set[i].rules;
  return 0;
}

static int add_rule(struct kvp_policy* policy, struct kvp_slice line, struct kvp_error* error) {
  struct kvp_rule rule;
  if (policy->id[0] == 0 || policy->name[0] == 0 || policy->version[0] == 0)
    return fail(error, 0, "name, version and id must precede the first rule");
  if (policy->rules == KVP_MAX_RULES) return fail(error, 0, "too many rules");
  if (kvp_parse_rule(line, &rule, error) != 0) return 1;
  ++policy->rules;
  if (rule.action == KVP_REFUSE) {
    if (policy->refusal[0] != 0) return fail(error, 0, "a second rule that refuses");
    return kvp_to_utf16(rule.pattern, policy->refusal, KVP_REFUSAL_UNITS + 1) == 0
               ? 0
               : fail(error, 0, "the text is malformed or too long");
  }
  if (kvp_to_utf16(rule.pattern, NULL, KVP_MAX_LINE_BYTES + 1) != 0)
    return fail(error, 0, "the pattern is malformed");
  return count_set(policy, rule.set, error);
}

static int set_header(uint16_t* field, size_t room, struct kvp_slice value,
                      struct kvp_error* error) {
  if (field[0] != 0) return fail(error, 0, "given twice");
  if (value.size == 0) return fail(error, 0, "the value is missing");
  if (kvp_to_utf16(value, field, room) != 0)
    return fail(error, 0, "the value is malformed or too long");
  return 0;
}

static int parse_line(struct kvp_policy* policy, struct kvp_slice line, struct kvp_error* error) {
  struct kvp_slice value = line;
  const struct kvp_slice word = take_word(&value);
  if (equals(word, "rule")) return add_rule(policy, line, error);
  if (equals(word, "name")) return set_header(policy->name, KVP_NAME_UNITS + 1, value, error);
  if (equals(word, "version"))
    return set_header(policy->version, KVP_VERSION_UNITS + 1, value, error);
  if (equals(word, "id")) return set_header(policy->id, KVP_ID_UNITS + 1, value, error);
  return fail(error, 0, "unknown word");
}

int kvp_parse(const char* text, size_t size, struct kvp_policy* policy, struct kvp_error* error) {
  struct reader reader = {text, text + size, 0};
  struct kvp_slice line;
  int begun = 0;
  clear(policy, sizeof *policy);
  if (size > KVP_MAX_TEXT_BYTES) return fail(error, 0, "the policy is too large");
  while (next_line(&reader, &line)) {
    if (line.size > KVP_MAX_LINE_BYTES) return fail(error, reader.line, "the line is too long");
    line = trim(line);
    if (line.size == 0 || line.bytes[0] == '#') continue;
    if (!begun) {
      if (!equals(line, "korvane-policy 1"))
        return fail(error, reader.line, "not a policy of format 1");
      begun = 1;
    } else if (parse_line(policy, line, error) != 0) {
      error->line = reader.line;
      return 1;
    }
  }
  if (!begun) return fail(error, 0, "the policy is empty");
  if (policy->id[0] == 0 || policy->name[0] == 0 || policy->version[0] == 0)
    return fail(error, 0, "name, version or id is missing");
  return 0;
}
