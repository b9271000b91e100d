#include "api/host_message.hpp"

#include <algorithm>

namespace tolvenra::api {

void host_message::begin() const {
  if (length_ < 1) return;
  constexpr std::string_view words = "OK so far!";
  const auto length = static_cast<std::size_t>(length_);
  std::fill_n(text_, length, ' ');
  std::copy_n(words.begin(), std::min(words.size(), length), text_);
}

void host_message::write(const error_type& err) const {
  if (length_ >= 1) err_msg(err, text_, static_cast<std::size_t>(length_));
}

}  // namespace tolvenra::api
