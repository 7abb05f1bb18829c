#include "stand-in-policy/policy_model.h"

#include "driver/driver_protocol.h"

static void clear(void* memory, size_t size) {
  volatile uint8_t* bytes = memory;
  while (size > 0) bytes[--size] = 0;
}

static void put_number(uint8_t* out, uint32_t number) {
  for (int i = 0; i < 4; ++i) out[i] = (uint8_t)(number >> (8 * i));
}

static void put_text(uint8_t* out, const uint16_t* text) {
  for (size_t i = 0; text[i] != 0; ++i) {
    out[2 * i] = (uint8_t)text[i];
    out[2 * i + 1] = (uint8_t)(text[i] >> 8);
  }
}

/* Appends ASCII text; what does not fit is left out. */
static size_t append(uint16_t* out, size_t units, const char* text) {
  while (*text != '\0' && units < 255) out[units++] = (uint8_t)*text++;
  out[units] = 0;
  return units;
}

static size_t append_number(uint16_t* out, size_t units, uint32_t number) {
  char digits[11];
  size_t at = sizeof digits - 1;
  digits[at] = '\0';
  do {
    digits[--at] = (char)('0' + number % 10);
    number /= 10;
  } while (number > 0);
  return append(out, units, digits + at);
}

static void refuse_malformed(struct kvp_driver* driver, const struct kvp_error* error) {
  size_t units = append(driver->refusal_text, 0, "The policy is malformed");
  if (error->line > 0) {
    units = append(driver->refusal_text, units, " in line ");
    units = append_number(driver->refusal_text, units, error->line);
  }
  units = append(driver->refusal_text, units, ": ");
  append(driver->refusal_text, units, error->reason);
  driver->refusal_number = KVP_MALFORMED;
}

int kvp_load(struct kvp_driver* driver, const char* text, size_t size) {
  struct kvp_error error;
  if (kvp_parse(text, size, &driver->candidate, &error) != 0) {
    refuse_malformed(driver, &error);
    return 1;
  }
  if (driver->candidate.refusal[0] != 0) {
    driver->refusal_number = KVP_RULE_REFUSES;
    for (size_t i = 0; i <= KVP_REFUSAL_UNITS; ++i)
      driver->refusal_text[i] = driver->candidate.refusal[i];
    return 1;
  }
  driver->policy = driver->candidate;
  driver->has_policy = 1;
  return 0;
}

void kvp_refuse(struct kvp_driver* driver, enum kvp_refusal number, const char* reason) {
  struct kvp_slice text = {reason, 0};
  while (reason[text.size] != '\0') ++text.size;
  driver->refusal_number = number;
  if (kvp_to_utf16(text, driver->refusal_text, 256) != 0)
    append(driver->refusal_text, 0, "The policy is refused.");
}

void kvp_use_builtin(struct kvp_driver* driver) {
  driver->has_policy = 0;
}

void kvp_policy_record(const struct kvp_driver* driver, uint8_t out[1028]) {
  static const uint16_t builtin_name[] = {'B', 'u', 'i', 'l', 't', '-', 'i', 'n', 0};
  static const uint16_t builtin_version[] = {'1', 0};
  static const uint16_t builtin_id[] = {'b', 'u', 'i', 'l', 't', 'i', 'n', 0};
  const struct kvp_policy* policy = &driver->policy;
  clear(out, KAVIPS_POLICY_RECORD_BYTES);
  put_number(out, driver->has_policy ? 0 : 1);
  put_text(out + KAVIPS_POLICY_NAME_OFFSET, driver->has_policy ? policy->name : builtin_name);
  put_text(out + KAVIPS_POLICY_VERSION_OFFSET,
           driver->has_policy ? policy->version : builtin_version);
  put_text(out + KAVIPS_POLICY_ID_OFFSET, driver->has_policy ? policy->id : builtin_id);
}

void kvp_refusal_record(const struct kvp_driver* driver, uint8_t out[516]) {
  clear(out, KAVIPS_REFUSAL_BYTES);
  put_number(out, driver->refusal_number);
  put_text(out + KAVIPS_REFUSAL_TEXT_OFFSET, driver->refusal_text);
}
