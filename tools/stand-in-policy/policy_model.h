/* What the stand-in drivers do with a translated policy: its text format, and what they answer when
 * they are asked about it.
 *
 * Freestanding C: no library, no memory of its own, no system header, so that a kernel-mode driver
 * and a program share it. Lifetime: a structure is the caller's; a rule points into the text that
 * it was read from. Threads: none is assumed; the caller serialises the use of one structure.
 * Errors: 0 is success, otherwise the error structure tells the line (from 1; 0: the text as a
 * whole) and the reason.
 *
 * The format (docs/file-formats.md): UTF-8 lines; the first is "korvane-policy 1", then "name",
 * "version" and "id" in any order, once each, before the first "rule".
 *
 *   struct kvp_policy policy;
 *   struct kvp_error error;
 *   if (kvp_parse(text, size, &policy, &error) != 0) ... error.line, error.reason
 */
#ifndef KORVANE_STAND_IN_POLICY_POLICY_MODEL_H
#define KORVANE_STAND_IN_POLICY_POLICY_MODEL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KVP_MAX_TEXT_BYTES 1048576u
#define KVP_MAX_LINE_BYTES 2048u
#define KVP_MAX_RULES 4096u
#define KVP_MAX_SETS 256u

/* In UTF-16 units, without the terminator. */
#define KVP_NAME_UNITS 127u
#define KVP_VERSION_UNITS 127u
#define KVP_ID_UNITS 255u
#define KVP_REFUSAL_UNITS 255u
#define KVP_SET_UNITS 61u

enum kvp_action { KVP_DENY, KVP_ALLOW, KVP_LOG, KVP_REFUSE };

/* A piece of UTF-8 text inside the policy's text, not terminated. */
struct kvp_slice {
  const char* bytes;
  size_t size;
};

struct kvp_rule {
  enum kvp_action action;
  struct kvp_slice kind;    /* "file", "registry", "process" or "network"; empty for KVP_REFUSE */
  struct kvp_slice set;     /* name of the process set; empty for KVP_REFUSE */
  struct kvp_slice pattern; /* what it applies to; for KVP_REFUSE the text */
};

struct kvp_set {
  uint16_t name[KVP_SET_UNITS + 1];
  uint32_t rules;
};

struct kvp_policy {
  uint16_t name[KVP_NAME_UNITS + 1];
  uint16_t version[KVP_VERSION_UNITS + 1];
  uint16_t id[KVP_ID_UNITS + 1];
  uint16_t refusal[KVP_REFUSAL_UNITS + 1]; /* empty unless a rule asks for refusal */
  uint32_t rules;
  uint32_t sets;
  struct kvp_set set[KVP_MAX_SETS]; /* in the order of their first rule */
};

struct kvp_error {
  uint32_t line;
  const char* reason; /* static ASCII text */
};

/* Reads a policy. What it holds after an error is of no use. */
int kvp_parse(const char* text, size_t size, struct kvp_policy* policy, struct kvp_error* error);

/* Reads one line of the form "rule ..." without its line end. */
int kvp_parse_rule(struct kvp_slice line, struct kvp_rule* rule, struct kvp_error* error);

/* Converts UTF-8 to UTF-16 with a terminator; room is the number of units, terminator included.
 * Returns 0, or 1 when the text is malformed, holds a control character or does not fit. Without
 * `out` the text is only checked. */
int kvp_to_utf16(struct kvp_slice text, uint16_t* out, size_t room);

/* Why the driver refused a policy; the first field of the refusal record. */
enum kvp_refusal { KVP_NO_FILE = 1, KVP_MALFORMED = 2, KVP_RULE_REFUSES = 3 };

/* What a driver remembers. Zeroed, it is a driver with its built-in policy. */
struct kvp_driver {
  int has_policy; /* 0: the built-in policy is in force */
  struct kvp_policy policy;
  struct kvp_policy candidate;
  uint32_t refusal_number;
  uint16_t refusal_text[256];
};

/* A load request whose file holds this text: 0 and the policy is in force, or 1, the policy before
 * stays in force and the refusal is remembered. */
int kvp_load(struct kvp_driver* driver, const char* text, size_t size);
/* A load request that fails for another reason, told in UTF-8. */
void kvp_refuse(struct kvp_driver* driver, enum kvp_refusal number, const char* reason);
void kvp_use_builtin(struct kvp_driver* driver);

/* The records that the driver answers with; the layouts are in driver/driver_protocol.h. */
void kvp_policy_record(const struct kvp_driver* driver, uint8_t out[1028]);
void kvp_refusal_record(const struct kvp_driver* driver, uint8_t out[516]);

#ifdef __cplusplus
}
#endif

#endif
