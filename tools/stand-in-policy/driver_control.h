/* What the operator of a stand-in driver has told it, and what it tells the operator: one behaviour for the
 * Linux simulator and the Windows driver.
 *
 * Freestanding C like policy_model.h; a structure is the caller's, who serialises its use. Texts are UTF-8.
 * Errors: 0 is success, 1 a command that is not understood, which changes nothing. Times in milliseconds.
 * docs/file-formats.md lists the commands.
 *
 *   if (kvp_obey(&control, command) != 0) ... "not understood"
 *   size = kvp_state(&control, &driver, text, sizeof text);
 */
#ifndef KORVANE_STAND_IN_POLICY_DRIVER_CONTROL_H
#define KORVANE_STAND_IN_POLICY_DRIVER_CONTROL_H

#include "stand-in-policy/policy_model.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The control code that a command goes with, on the operator's device; the limits of both texts. */
#define KVP_COMMAND_CODE 0xF0000010u
#define KVP_MAX_COMMAND_BYTES 1024u
#define KVP_STATE_BYTES 4096u

#define KVP_MAX_PATH_BYTES 65536u

enum kvp_mode { KVP_NORMAL, KVP_STALL, KVP_DELAY, KVP_LATE_ERROR, KVP_FAIL };

enum kvp_prevention { KVP_PREVENTION_ON, KVP_PREVENTION_OFF, KVP_PREVENTION_ELSEWHERE };

/* Zeroed, it is a driver that answers at once. */
struct kvp_control {
  enum kvp_mode mode;
  uint32_t delay_ms;                       /* KVP_DELAY, KVP_LATE_ERROR */
  uint32_t error;                          /* KVP_LATE_ERROR, KVP_FAIL: a Win32 error number */
  int vanished;                            /* the device is not to be there */
  enum kvp_prevention prevention;          /* ELSEWHERE: not this driver's business */
  uint16_t refusal[KVP_REFUSAL_UNITS + 1]; /* every policy is refused with it; empty: none */
  uint32_t requests;                       /* of the device, since the start */
  uint32_t pending;
  uint32_t loaded;
  uint32_t refused;
};

int kvp_obey(struct kvp_control* control, struct kvp_slice command);

/* The state as one JSON object with its terminator, in at most `room` bytes; its length. */
size_t kvp_state(const struct kvp_control* control, const struct kvp_driver* driver, char* out,
                 size_t room);

/* The length in UTF-16 units of the path in a load request: UTF-16LE with exactly one terminator, at its
 * end. 0 when it is none; the refusal is then remembered. */
size_t kvp_path_units(struct kvp_driver* driver, const uint8_t* input, size_t size);

/* The outcome of a load request: the file's text, or the errno number with which it could not be read (then
 * `path`, in UTF-8, goes into the refusal). 0: the policy is in force. */
int kvp_take_policy(struct kvp_driver* driver, struct kvp_control* control, struct kvp_slice text);
void kvp_refuse_file(struct kvp_driver* driver, int error, const char* path);

#ifdef __cplusplus
}
#endif

#endif
