/// \file host_message.hpp  The message text that the host reads after a run.
#pragma once

#include <string_view>

#include "core/error_handler.hpp"

namespace tolvenra::api {

/// The host's buffer: fixed length, no NUL. Nothing is written when there is no buffer.
class host_message {
 public:
  host_message(char* text, int32 length) : text_(text), length_(text ? length : 0) {}

  /// "OK so far!", blank padded.
  void begin() const;
  /// The lines of a report, joined by carriage return and line feed.
  void write(const error_type& err) const;

 private:
  char* text_;
  int32 length_;
};

}  // namespace tolvenra::api
