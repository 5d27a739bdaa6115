#include "phone/calls/redirect.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <set>

#include "phone/calls/real.h"

namespace phone {
namespace {

constexpr std::string_view kRedirectedRoots[] = {
    "/data/misc/camera", "/sys/android_camera_awb_cal", "/proc/emmc", "/proc/mtd", "/dev/block", "/dev/mtd",
};

// Read without a lock by every call of every thread. A folder's name is never freed, so that a call in
// another thread may still be using it after the phone was detached.
constinit std::atomic<const std::string*> folder = nullptr;

class PathBuffer {
 public:
  bool assign(std::string_view path) {
    size_ = 0;
    if (!path.starts_with('/')) return false;
    while (!path.empty()) {
      const size_t end = path.find('/');
      if (!append(path.substr(0, end))) return false;
      path = end == path.npos ? std::string_view{} : path.substr(end + 1);
    }
    return true;
  }
  std::string_view view() const { return size_ == 0 ? "/" : std::string_view(bytes_.data(), size_); }

 private:
  bool append(std::string_view component) {
    if (component.empty() || component == ".") return true;
    if (component == "..") {
      while (size_ > 0 && bytes_[--size_] != '/') {
      }
      return true;
    }
    if (size_ + 1 + component.size() >= bytes_.size()) return false;
    bytes_[size_++] = '/';
    std::memcpy(bytes_.data() + size_, component.data(), component.size());
    size_ += component.size();
    return true;
  }

  std::array<char, PATH_MAX> bytes_;
  size_t size_ = 0;
};

const std::string_view* root_of(std::string_view path) {
  for (const std::string_view& root : kRedirectedRoots) {
    if (path.starts_with(root) && (path.size() == root.size() || path[root.size()] == '/')) return &root;
  }
  return nullptr;
}

/// `path` with its first symbolic link replaced by what it leads to; null if there is none to replace.
std::optional<std::string> one_link_further(const std::string& dir, const std::string& path, Links links) {
  const std::string_view* root = root_of(path);
  if (root == nullptr) return std::nullopt;
  for (size_t end = root->size();; end = path.find('/', end + 1)) {
    const bool last = end == path.npos || end == path.size();
    if (last && links == Links::keep_last) return std::nullopt;
    const std::string link = path.substr(0, end);
    char target[PATH_MAX];
    const ssize_t size = real::readlink((dir + link).c_str(), target, sizeof target);
    if (size > 0) {
      std::string further(target, static_cast<size_t>(size));
      if (!further.starts_with('/')) further = link.substr(0, link.rfind('/') + 1) + further;
      return normalised(last ? further : further + path.substr(end));
    }
    if (last) return std::nullopt;
  }
}

}  // namespace

std::optional<std::string> normalised(std::string_view path) {
  PathBuffer buffer;
  if (!buffer.assign(path)) return std::nullopt;
  return std::string(buffer.view());
}

std::optional<Target> redirect(const char* path, Links links) {
  const std::string* dir = folder.load(std::memory_order_acquire);
  if (dir == nullptr || path == nullptr || path[0] != '/') return std::nullopt;
  PathBuffer buffer;
  if (!buffer.assign(path) || root_of(buffer.view()) == nullptr) return std::nullopt;

  // A trailing slash asks for a directory; the host's kernel is to answer that as the phone's would.
  const bool wants_directory = path[std::strlen(path) - 1] == '/';
  Target target{.phone = std::string(buffer.view()), .host = {}};
  constexpr int kMaxLinks = 40;  // as Linux counts them
  for (int hops = 0; hops <= kMaxLinks; ++hops) {
    const auto further = one_link_further(*dir, target.phone, wants_directory ? Links::follow : links);
    // A link that leads off the phone is left for the kernel to follow.
    if (!further || root_of(*further) == nullptr) {
      target.host = *dir + target.phone + (wants_directory ? "/" : "");
      return target;
    }
    target.phone = *further;
  }
  target.error = ELOOP;
  return target;
}

bool redirected_on_host(const std::string& dir) {
  return root_of(dir) != nullptr;
}

void redirect_to(const std::string& dir) {
  static auto* const names = new std::set<std::string>;
  folder.store(dir.empty() ? nullptr : &*names->insert(dir).first, std::memory_order_release);
}

}  // namespace phone
