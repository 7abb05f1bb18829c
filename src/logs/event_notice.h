// The message that carries a batch of records over the local channel, written straight from their
// bytes; docs/event-channel.md shows it.
//
// No state, any thread. Texts are UTF-8, which the records of LineReader always are; control
// characters are written as \u00XX. All sizes are bytes.
//
//   const std::string message = eventNotice(7, "19f2-7", batch);
#pragma once

#include <cstddef>
#include <string>

#include "logs/log_destination.h"

namespace korvane {

std::string eventNotice(int messageId, const std::string& sendId, const LogBatch& batch);
// What a record adds to a notice.
size_t eventNoticeBytes(const EventRecord& record, const RecordNotes& notes);

}  // namespace korvane
