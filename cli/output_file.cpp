#include "output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "input_error.hpp"

namespace tolvenra::cli {
namespace fs = std::filesystem;
namespace {

/// An absolute path without links, also of a file that does not exist yet.
std::string canonical(const std::string& path) {
  std::error_code error;
  const fs::path result = fs::weakly_canonical(fs::absolute(path, error), error);
  return error || result.empty() ? path : result.string();
}

/// Removes the temporary file unless it has been given its name.
class removal {
 public:
  explicit removal(const std::string& path) : path_(path) {}
  removal(const removal&) = delete;
  removal& operator=(const removal&) = delete;
  ~removal() {
    if (armed_) ::unlink(path_.c_str());
  }
  void release() { armed_ = false; }

 private:
  const std::string& path_;
  bool armed_ = true;
};

}  // namespace

output_file::output_file(std::string path, const std::string& option) : path_(std::move(path)) {
  std::error_code error;
  const fs::file_status status = fs::status(path_, error);
  if (path_.empty() || path_ == "-" || fs::is_directory(status))
    throw input_error::of("{}: \"{}\" is no file that can be written; give the name of a file.",
                          option, path_);
  direct_ = fs::exists(status) && !fs::is_regular_file(status);
  // A link stays a link: the file it leads to is replaced.
  target_ = direct_ ? path_ : canonical(path_);
  if (fs::is_regular_file(status) && ::access(target_.c_str(), W_OK) != 0)
    throw input_error::of("{}: {} cannot be written: {}.", option, path_, std::strerror(errno));
  if (direct_) return;
  temporary_ = (fs::path(target_).parent_path() /
                fmt::format(".{}.{}.part", fs::path(target_).filename().string(), ::getpid()))
                   .string();
  std::FILE* probe = open_temporary();
  if (!probe)
    throw input_error::of("{}: {} cannot be written: {}.", option, path_, std::strerror(errno));
  std::fclose(probe);
  ::unlink(temporary_.c_str());
}

std::FILE* output_file::open_temporary() const {
  struct stat old {};
  const bool replaces = ::stat(target_.c_str(), &old) == 0;
  const int fd = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return nullptr;
  if (replaces) (void)!::fchmod(fd, old.st_mode & 07777);
  return ::fdopen(fd, "wb");
}

void output_file::write(const std::function<void(std::FILE*)>& body) const {
  const auto fail = [&](int error = errno) {
    throw output_error(fmt::format("{} could not be written: {}.", path_, std::strerror(error)));
  };
  std::FILE* file = direct_ ? std::fopen(target_.c_str(), "wb") : open_temporary();
  if (!file) fail();
  removal unfinished(temporary_);
  if (direct_) unfinished.release();
  try {
    body(file);
  } catch (const std::system_error& error) {  // of a write inside the body
    std::fclose(file);
    fail(error.code().value());
  } catch (...) {
    std::fclose(file);
    throw;
  }
  const bool good = std::ferror(file) == 0;
  if (std::fclose(file) != 0 || !good) fail();
  if (direct_) return;
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail();
  unfinished.release();
}

bool output_file::same_as(const std::string& other) const {
  std::error_code error;
  return target_ == canonical(other) || (!direct_ && fs::equivalent(target_, other, error));
}

}  // namespace tolvenra::cli
