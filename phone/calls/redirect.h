// Which paths belong to the phone, and where they are on the host.
#ifndef PHONE_CALLS_REDIRECT_H
#define PHONE_CALLS_REDIRECT_H

#include <optional>
#include <string>
#include <string_view>

namespace phone {

enum class Links { follow, keep_last };

struct Target {
  std::string phone;  ///< normalised; links that lead to another path of the phone are followed
  std::string host;
  int error = 0;  ///< ELOOP: the links go round in circles
};

/// Null if `path` is not the phone's. Allocates nothing in that case; may change errno otherwise.
std::optional<Target> redirect(const char* path, Links links);

/// `path` without empty, "." and ".." components; null if it is relative or too long.
std::optional<std::string> normalised(std::string_view path);

/// True if paths in this folder of the host would themselves be the phone's.
bool redirected_on_host(const std::string& dir);

/// The folder that paths lead to; empty: nothing is redirected.
void redirect_to(const std::string& dir);

}  // namespace phone

#endif
