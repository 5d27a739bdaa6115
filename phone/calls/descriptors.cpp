#include "phone/calls/descriptors.h"

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <utility>

#include "phone/virtual_phone.h"

namespace phone {
namespace {

// Descriptors above the usual limit of a process are not tracked; they then behave as plain files.
constinit std::array<std::atomic<const Node*>, 65536> nodes = {};
constinit std::atomic<size_t> tracked = 0;

bool in_table(int fd) {
  return fd >= 0 && static_cast<size_t>(fd) < nodes.size();
}

}  // namespace

const Node* node_of(int fd) {
  return in_table(fd) ? nodes[static_cast<size_t>(fd)].load(std::memory_order_acquire) : nullptr;
}

void track(int fd, const Node* node) {
  if (!in_table(fd)) return;
  const Node* before = nodes[static_cast<size_t>(fd)].exchange(node, std::memory_order_acq_rel);
  if (before == nullptr && node != nullptr) ++tracked;
  if (before != nullptr && node == nullptr) --tracked;
}

const Node* node_for(const std::string& path, NodeKind kind) {
  static std::mutex mutex;
  static auto* const known = new std::map<std::pair<std::string, NodeKind>, Node>;
  const std::lock_guard lock(mutex);
  return &known->try_emplace({path, kind}, Node{path, kind}).first->second;
}

size_t VirtualPhone::open_descriptors() const {
  return tracked;
}

}  // namespace phone
