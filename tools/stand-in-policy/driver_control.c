#include "stand-in-policy/driver_control.h"

enum { MAX_DELAY_MS = 3600000, GENERAL_FAILURE = 31 };

static const char* const mode_words[] = {"normal", "stall", "delay", "late-error", "fail"};

/* JSON, as far as there is room; one byte is kept for the terminator. */
struct writer {
  char* next;
  char* end;
};

static int equals(struct kvp_slice text, const char* word) {
  size_t i = 0;
  while (i < text.size && word[i] != '\0' && text.bytes[i] == word[i]) ++i;
  return i == text.size && word[i] == '\0';
}

static struct kvp_slice take_word(struct kvp_slice* text) {
  struct kvp_slice word;
  while (text->size > 0 && *text->bytes == ' ') {
    ++text->bytes;
    --text->size;
  }
  word.bytes = text->bytes;
  word.size = 0;
  while (text->size > 0 && *text->bytes != ' ') {
    ++text->bytes;
    --text->size;
    ++word.size;
  }
  return word;
}

static int take_number(struct kvp_slice* text, uint32_t most, uint32_t* out) {
  const struct kvp_slice word = take_word(text);
  uint64_t value = 0;
  if (word.size == 0 || word.size > 10) return 1;
  for (size_t i = 0; i < word.size; ++i) {
    if (word.bytes[i] < '0' || word.bytes[i] > '9') return 1;
    value = value * 10 + (uint64_t)(word.bytes[i] - '0');
  }
  if (value > most) return 1;
  *out = (uint32_t)value;
  return 0;
}

static int at_end(struct kvp_slice rest) {
  return take_word(&rest).size == 0;
}

static int set_mode(struct kvp_control* control, struct kvp_slice verb, struct kvp_slice rest) {
  uint32_t mode = 0;
  uint32_t delay = 0;
  uint32_t error = GENERAL_FAILURE;
  while (mode <= KVP_FAIL && !equals(verb, mode_words[mode])) ++mode;
  if (mode > KVP_FAIL) return 1;
  if ((mode == KVP_DELAY || mode == KVP_LATE_ERROR) &&
      take_number(&rest, MAX_DELAY_MS, &delay) != 0)
    return 1;
  if ((mode == KVP_FAIL || (mode == KVP_LATE_ERROR && !at_end(rest))) &&
      take_number(&rest, UINT32_MAX, &error) != 0)
    return 1;
  if (!at_end(rest)) return 1;
  control->mode = (enum kvp_mode)mode;
  control->delay_ms = delay;
  control->error = error;
  if (mode == KVP_NORMAL) control->vanished = 0;
  return 0;
}

static int set_prevention(struct kvp_control* control, struct kvp_slice rest) {
  const struct kvp_slice word = take_word(&rest);
  const int on = equals(word, "on");
  if (control->prevention == KVP_PREVENTION_ELSEWHERE || !at_end(rest)) return 1;
  if (!on && !equals(word, "off")) return 1;
  control->prevention = on ? KVP_PREVENTION_ON : KVP_PREVENTION_OFF;
  return 0;
}

static int set_refusal(struct kvp_control* control, struct kvp_slice rest) {
  while (rest.size > 0 && *rest.bytes == ' ') {
    ++rest.bytes;
    --rest.size;
  }
  if (kvp_to_utf16(rest, NULL, KVP_REFUSAL_UNITS + 1) != 0) return 1;
  return kvp_to_utf16(rest, control->refusal, KVP_REFUSAL_UNITS + 1);
}

int kvp_obey(struct kvp_control* control, struct kvp_slice command) {
  struct kvp_slice rest = command;
  const struct kvp_slice verb = take_word(&rest);
  if (command.size > KVP_MAX_COMMAND_BYTES) return 1;
  if (equals(verb, "state")) return !at_end(rest);
  if (equals(verb, "refuse")) return set_refusal(control, rest);
  if (equals(verb, "prevention")) return set_prevention(control, rest);
  if (!equals(verb, "vanish")) return set_mode(control, verb, rest);
  if (!at_end(rest)) return 1;
  control->vanished = 1;
  return 0;
}

static void put(struct writer* out, char c) {
  if (out->next != out->end) *out->next++ = c;
}

static void put_ascii(struct writer* out, const char* text) {
  while (*text != '\0') put(out, *text++);
}

static void put_number(struct writer* out, uint32_t number) {
  char digits[10];
  size_t count = 0;
  do {
    digits[count++] = (char)('0' + number % 10);
    number /= 10;
  } while (number > 0);
  while (count > 0) put(out, digits[--count]);
}

static void put_code(struct writer* out, uint32_t code) {
  const int more = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
  static const uint8_t leads[] = {0, 0xC0, 0xE0, 0xF0};
  put(out, (char)(leads[more] | code >> (6 * more)));
  for (int i = more - 1; i >= 0; --i) put(out, (char)(0x80 | (code >> (6 * i) & 0x3F)));
}

/* Well-formed text without control characters, as the model takes no other. */
static void put_text(struct writer* out, const char* name, const uint16_t* text) {
  put_ascii(out, name);
  put(out, '"');
  for (; *text != 0; ++text) {
    uint32_t code = *text;
    if (code >= 0xD800 && code < 0xDC00 && text[1] != 0)
      code = 0x10000 + ((code & 0x3FF) << 10) + (*++text & 0x3FFu);
    if (code == '"' || code == '\\') put(out, '\\');
    put_code(out, code);
  }
  put(out, '"');
}

static void put_flag(struct writer* out, const char* name, int value) {
  put_ascii(out, name);
  put_ascii(out, value ? "true" : "false");
}

static void put_count(struct writer* out, const char* name, uint32_t value) {
  put_ascii(out, name);
  put_number(out, value);
}

size_t kvp_state(const struct kvp_control* control, const struct kvp_driver* driver, char* out,
                 size_t room) {
  static const uint16_t none[] = {0};
  const struct kvp_policy* policy = driver->has_policy ? &driver->policy : NULL;
  struct writer writer = {out, out + room - 1};
  put_flag(&writer, "{\"builtIn\":", policy == NULL);
  put_text(&writer, ",\"id\":", policy ? policy->id : none);
  put_count(&writer, ",\"loaded\":", control->loaded);
  put_ascii(&writer, ",\"mode\":\"");
  put_ascii(&writer, mode_words[control->mode]);
  put_text(&writer, "\",\"name\":", policy ? policy->name : none);
  put_count(&writer, ",\"pending\":", control->pending);
  put_flag(&writer, ",\"present\":", !control->vanished);
  if (control->prevention != KVP_PREVENTION_ELSEWHERE)
    put_flag(&writer, ",\"prevention\":", control->prevention == KVP_PREVENTION_ON);
  put_count(&writer, ",\"refused\":", control->refused);
  put_text(&writer, ",\"refuses\":", control->refusal);
  put_count(&writer, ",\"requests\":", control->requests);
  put_text(&writer, ",\"version\":", policy ? policy->version : none);
  put(&writer, '}');
  *writer.next = '\0';
  return (size_t)(writer.next - out);
}

size_t kvp_path_units(struct kvp_driver* driver, const uint8_t* input, size_t size) {
  size_t units = 0;
  if (size >= 4 && size % 2 == 0 && size <= KVP_MAX_PATH_BYTES)
    while (2 * units < size && (input[2 * units] != 0 || input[2 * units + 1] != 0)) ++units;
  if (units > 0 && 2 * (units + 1) == size) return units;
  kvp_refuse(driver, KVP_NO_FILE, "The request names no policy file.");
  return 0;
}

static int refuses(const struct kvp_control* control, struct kvp_driver* driver) {
  if (control->refusal[0] == 0) return 0;
  driver->refusal_number = KVP_RULE_REFUSES;
  for (size_t i = 0; i <= KVP_REFUSAL_UNITS; ++i) driver->refusal_text[i] = control->refusal[i];
  return 1;
}

int kvp_take_policy(struct kvp_driver* driver, struct kvp_control* control, struct kvp_slice text) {
  return refuses(control, driver) ? 1 : kvp_load(driver, text.bytes, text.size);
}

void kvp_refuse_file(struct kvp_driver* driver, int error, const char* path) {
  char text[512];
  struct writer writer = {text, text + sizeof text - 1};
  put_ascii(&writer, "The policy file cannot be read (");
  put_number(&writer, (uint32_t)error);
  put_ascii(&writer, "): ");
  put_ascii(&writer, path);
  *writer.next = '\0';
  kvp_refuse(driver, KVP_NO_FILE, text);
}
