// What a program needs to use the agent library: startAgent, stopAgent and the exported classes,
// with the types they are made of. One include folder, the one that this file lies in; C++20.
//
//   #include <korvane-agent.h>
//   korvane::FileLogPointer pointer("/opt/agent/IPS/hidslog1rtfilepointer");
//
// Headers that lie here and are not named below are parts of these: nothing of them is exported.
#pragma once

#define KORVANE_OUTSIDE 1

#include "agent/exports.h"
#include "agent/thread/agent_info.h"
#include "comm/https_handler.h"
#include "comm/section.h"
#include "config/agent_config.h"
#include "driver/driver_config.h"
#include "driver/notify_driver.h"
#include "logs/file_log_pointer.h"
#include "update/update_thread.h"
#include "update/util_thread.h"
#include "util/errors.h"
