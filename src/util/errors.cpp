#include "util/errors.h"

namespace korvane {

AgentError::AgentError(int code, STRING text, STRING context)
    : _code(code), _text(std::move(text)), _context(std::move(context)), _what(_text.toUtf8()) {}

FileError::FileError(int errnoValue, STRING operation, STRING message)
    : AgentError(errnoValue, std::move(message), std::move(operation)) {}

}  // namespace korvane
