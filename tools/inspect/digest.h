// Which bytes an answer is about.
#ifndef INSPECT_DIGEST_H
#define INSPECT_DIGEST_H

#include <map>
#include <span>
#include <string>

namespace awbcal {

/// SHA-256, in hexadecimal digits as sha256sum prints it.
std::string sha256_of(std::span<const uint8_t> bytes);

/// By path, the digest of every file that was read.
using Digests = std::map<std::string, std::string>;

/// One digest of the whole input: the file's own when it is one file, else that of sha256sum's lines ("DIGEST  PATH")
/// of all of them in the order of their paths.
std::string digest_of(const Digests& digests);

}  // namespace awbcal

#endif
