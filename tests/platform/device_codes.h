// The control codes by which the device tests ask a driver for a certain behaviour; on Windows they
// say too that the buffers are copied (method 0). Also for C.
#pragma once

enum DeviceTestCode {
  kEcho = 0x222004,          // finishes at once with the input as its output
  kRefuseAtOnce = 0x222008,  // fails at once with 87
  kLateEcho = 0x22200C,      // was pending, finishes with the input
  kLateError = 0x222010,     // was pending, ends with 31
  kLateMoreData = 0x222014,  // was pending, fills the buffer and ends with 234
  kNever = 0x222018,
};
