#include "inspect/digest.h"

#include <fmt/format.h>
#include <sha2.h>

#include <array>

#include "inspect/decode.h"

namespace awbcal {

std::string sha256_of(std::span<const uint8_t> bytes) {
  SHA2_CTX context;
  SHA256Init(&context);
  SHA256Update(&context, bytes.data(), bytes.size());
  std::array<uint8_t, SHA256_DIGEST_LENGTH> digest{};
  SHA256Final(digest.data(), &context);
  return hex(digest);
}

std::string digest_of(const Digests& digests) {
  if (digests.size() == 1) return digests.begin()->second;
  std::string lines;
  for (const auto& [path, digest] : digests) lines += fmt::format("{}  {}\n", digest, path);
  return sha256_of({reinterpret_cast<const uint8_t*>(lines.data()), lines.size()});
}

}  // namespace awbcal
