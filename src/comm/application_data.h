// The body of a message of application data: its properties and a piece of a file, which is read
// straight into the body. Thread-safe.
//
//   MessageBody body;
//   if (int error = writeApplicationData(properties, *file, offset, length, body)) return error;
//   handler.sendApplicationData(body, request, /*moreData=*/true, length);
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "comm/message_body.h"
#include "platform/fwd.h"
#include "util/property_list.h"

namespace korvane {

// The three properties that every message of application data begins with.
PropertyList applicationDataProperties(const STRING& request, bool moreData);
// Properties, and the bytes as a binary section unless there are none.
void writeApplicationData(PropertyList properties, std::string_view bytes, MessageBody& out);
// The same with `length` bytes of a file, from `offset` on. 0 or an errno value; EIO for a file that ends
// before.
[[nodiscard]] int writeApplicationData(PropertyList properties, platform::File& file,
                                       uint64_t offset, size_t length, MessageBody& out);

}  // namespace korvane
