// The descriptors that are open on the phone's paths.
#ifndef PHONE_CALLS_DESCRIPTORS_H
#define PHONE_CALLS_DESCRIPTORS_H

#include <cstddef>
#include <string>

namespace phone {

enum class NodeKind { file, block_device, nand };

struct Node {
  std::string path;
  NodeKind kind;
};

/// What `fd` is open on; null if it is not the phone's. Takes no lock and may be called in a signal handler.
const Node* node_of(int fd);

/// From now on `fd` is open on `node`; null: on nothing of the phone's.
void track(int fd, const Node* node);

/// The one node of this path and kind; it lives as long as the process.
const Node* node_for(const std::string& path, NodeKind kind);

}  // namespace phone

#endif
