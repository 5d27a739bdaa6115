// The C library's streams. What a stream buffers reaches the file below these calls, inside the C library;
// the calls are intercepted by name, so that they show in the journal and faults can strike them.
#include <fcntl.h>

#include <cstdint>
#include <cstdio>

#include "phone/calls/interpose.h"

namespace phone {
namespace {

int descriptor_of(std::FILE* stream) {
  const ErrnoKeeper keeper;
  return stream == nullptr ? -1 : fileno(stream);
}

/// As on_descriptor; `failed` is what the call returns when a fault strikes it.
template <typename Result, typename Real>
Result on_stream(const char* call, std::FILE* stream, size_t size, Result failed, Real&& real) {
  const Node* node = node_of(descriptor_of(stream));
  if (node == nullptr) return real(size);
  const int error = decide([&] {
    const CallEffect effect = effect_on_file_call(call, node->path);
    if (effect.transfer >= 0) size = std::min(size, static_cast<size_t>(effect.transfer));
    return effect.error;
  });
  if (error == 0) return real(size);
  errno = error;
  return failed;
}

/// Runs `transfer(bytes)` for `count` items of `size` bytes; an uncut transfer goes through `whole`.
template <typename Whole, typename Part>
size_t on_items(const char* call, std::FILE* stream, size_t size, size_t count, Whole&& whole, Part&& part) {
  size_t bytes = 0;
  if (size == 0 || __builtin_mul_overflow(size, count, &bytes)) return whole();
  return on_stream<size_t>(call, stream, bytes, 0,
                           [&](size_t cut) { return cut == bytes ? whole() : part(cut) / size; });
}

int flags_of(const char* mode) {
  const std::string_view text = mode;
  const int create = text[0] == 'r' ? 0 : O_CREAT | (text[0] == 'a' ? O_APPEND : O_TRUNC);
  const int alone = text[0] == 'r' ? O_RDONLY : O_WRONLY;
  return create | (text.find('+') != text.npos ? O_RDWR : alone) |
         (text.find('e') != text.npos ? O_CLOEXEC : 0) | (text.find('x') != text.npos ? O_EXCL : 0);
}

}  // namespace
}  // namespace phone

using phone::on_items;
using phone::on_path;
using phone::on_stream;

namespace phone {
namespace {

// A device keeps its size whatever the mode says, and fdopen() never truncates.
std::FILE* open_device(const char* at, const std::string& phone_path, const char* mode) {
  const int fd = real::open(at, flags_for(phone_path, flags_of(mode)), 0666);
  return fd < 0 ? nullptr : fdopen(fd, mode);
}

template <typename Open>
std::FILE* open_stream(const char* path, const char* mode, Open&& open) {
  return on_path("fopen", path, Links::follow, [&](const char* at, const std::string* phone_path) {
    if (phone_path == nullptr) return open(at);
    std::FILE* stream = is_device_path(*phone_path) ? open_device(at, *phone_path, mode) : open(at);
    const int fd = descriptor_of(stream);
    const ErrnoKeeper keeper;
    if (fd >= 0) track(fd, opened_node(fd, *phone_path));
    return stream;
  });
}

}  // namespace
}  // namespace phone

INTERPOSE(std::FILE*, fopen, (const char* path, const char* mode)) {
  return phone::open_stream(path, mode, [&](const char* at) { return NEXT(fopen)(at, mode); });
}
INTERPOSE_ALIAS(fopen64, fopen);

// On a device it behaves as on a plain file: nobody reopens a stream on one.
INTERPOSE(std::FILE*, freopen, (const char* path, const char* mode, std::FILE* stream)) {
  phone::track(phone::descriptor_of(stream), nullptr);
  return on_path("freopen", path, phone::Links::follow, [&](const char* at, const std::string* phone_path) {
    std::FILE* result = NEXT(freopen)(at, mode, stream);
    const phone::ErrnoKeeper keeper;
    const int fd = phone::descriptor_of(result);
    if (fd >= 0 && phone_path != nullptr) phone::track(fd, phone::opened_node(fd, *phone_path));
    return result;
  });
}
INTERPOSE_ALIAS(freopen64, freopen);

// As on Linux, the stream and its descriptor are gone also when fclose() reports an error.
INTERPOSE(int, fclose, (std::FILE * stream)) {
  const int fd = phone::descriptor_of(stream);
  const phone::Node* node = phone::node_of(fd);
  if (node == nullptr) return NEXT(fclose)(stream);
  const int error = phone::decide([&] { return phone::effect_on_file_call("fclose", node->path).error; });
  phone::track(fd, nullptr);
  const int result = NEXT(fclose)(stream);
  return error != 0 ? phone::fail<int>(error) : result;
}

INTERPOSE(size_t, fread, (void* to, size_t size, size_t count, std::FILE* stream)) {
  return on_items(
      "fread", stream, size, count, [&] { return NEXT(fread)(to, size, count, stream); },
      [&](size_t bytes) { return NEXT(fread)(to, 1, bytes, stream); });
}

INTERPOSE(size_t, __fread_chk, (void* to, size_t room, size_t size, size_t count, std::FILE* stream)) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(size, count, &bytes) || bytes > room) __chk_fail();
  return interposed_fread(to, size, count, stream);
}

INTERPOSE(size_t, fwrite, (const void* from, size_t size, size_t count, std::FILE* stream)) {
  return on_items(
      "fwrite", stream, size, count, [&] { return NEXT(fwrite)(from, size, count, stream); },
      [&](size_t bytes) { return NEXT(fwrite)(from, 1, bytes, stream); });
}

INTERPOSE(char*, fgets, (char* to, int size, std::FILE* stream)) {
  return on_stream<char*>("fgets", stream, 0, nullptr, [&](size_t) { return NEXT(fgets)(to, size, stream); });
}

INTERPOSE(char*, __fgets_chk, (char* to, size_t room, int size, std::FILE* stream)) {
  if (size > 0 && static_cast<size_t>(size) > room) __chk_fail();
  return interposed_fgets(to, size, stream);
}

INTERPOSE(int, fputs, (const char* text, std::FILE* stream)) {
  return on_stream<int>("fputs", stream, 0, EOF, [&](size_t) { return NEXT(fputs)(text, stream); });
}

INTERPOSE(int, fseek, (std::FILE * stream, long offset, int whence)) {
  return on_stream<int>("fseek", stream, 0, -1, [&](size_t) { return NEXT(fseek)(stream, offset, whence); });
}

INTERPOSE(int, fseeko, (std::FILE * stream, off_t offset, int whence)) {
  return on_stream<int>("fseek", stream, 0, -1, [&](size_t) { return NEXT(fseeko)(stream, offset, whence); });
}
INTERPOSE_ALIAS(fseeko64, fseeko);

INTERPOSE(int, fflush, (std::FILE * stream)) {
  return on_stream<int>("fflush", stream, 0, EOF, [&](size_t) { return NEXT(fflush)(stream); });
}
