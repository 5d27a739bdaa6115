// What an input of the library's fuzzers means: a phone in memory, and calls on it.
//
// The first bytes are the camera and the log mask. Then each byte is a step with its own arguments: below 0x80 it
// changes the phone (a file, bytes of it, a record in it, a property, a line of a table, a fault); from 0x80 on it is a
// call, with four bytes of arguments. The calls are made twice, over different remains on the stack: what they
// return, write and log has to be the same.
#ifndef FUZZ_PHONE_PROGRAM_H
#define FUZZ_PHONE_PROGRAM_H

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

#include "fuzz/phone_in_memory.h"
#include "fuzz/require.h"

namespace fuzz {

/// The bytes of an input; zeros behind its end.
class Input {
 public:
  explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  bool is_at_end() const { return at_ >= bytes_.size(); }
  uint8_t byte() { return is_at_end() ? 0 : bytes_[at_++]; }
  uint32_t word16() {
    const uint32_t low = byte();
    return low | uint32_t{byte()} << 8;
  }
  uint32_t word32() {
    const uint32_t low = word16();
    return low | word16() << 16;
  }

 private:
  std::span<const uint8_t> bytes_;
  size_t at_ = 0;
};

struct Call {
  uint8_t function;
  std::array<uint8_t, 4> argument;

  uint32_t word16(size_t i) const { return argument[i] | static_cast<uint32_t>(argument[i + 1]) << 8; }
};

/// What the calls of a pass said, byte by byte.
class Transcript {
 public:
  void clear() { size_ = 0; }
  void add(const void* bytes, size_t size) {
    if (size > sizeof bytes_ - size_) return;
    memcpy(bytes_ + size_, bytes, size);
    size_ += size;
  }
  void add(int64_t number) { add(&number, sizeof number); }
  bool operator==(const Transcript& other) const {
    return size_ == other.size_ && memcmp(bytes_, other.bytes_, size_) == 0;
  }
  /// What of it can be read.
  std::string text() const {
    std::string all(bytes_, bytes_ + size_);
    for (char& c : all) {
      if (c < ' ' && c != '\n') c = '.';
    }
    return all;
  }

 private:
  size_t size_ = 0;
  uint8_t bytes_[1 << 18];
};

/// A buffer of `size` bytes that ends where its memory ends; what lies before it is looked at.
class Guarded {
 public:
  static constexpr size_t kMost = 8192;
  Guarded(size_t size, uint8_t fill);
  uint8_t* data() const { return bytes_; }
  size_t size() const { return size_; }
  void check() const;

 private:
  uint8_t* bytes_;
  size_t size_;
};

/// Bytes that a pass began with its filling in have it still.
void require_filled(const uint8_t* from, const uint8_t* to, const char* what);

/// The filling of buffers and of the stack in this pass.
uint8_t pass_fill();

/// Whether the call since `struck` faults is one for a second opinion: no fault struck, and none was given in the first
/// pass, whose results the second one repeats.
bool is_to_be_compared(unsigned struck);

/// The camera that the program selects.
int32_t program_camera();

/// The phone of an input, and its calls: as many as are looked at.
std::span<const Call> build_phone(std::span<const uint8_t> input);

/// Runs an input: `perform` makes one call and adds to the transcript what came of it.
void run_program(std::span<const uint8_t> input, void (*perform)(const Call& call, Transcript& transcript));

// ---- a second opinion on records --------------------------------------------------------------------------

using Fuse = std::array<uint64_t, 4>;

/// The camera's fuse ID by its properties: 0 main, 1 front, 2 sub.
Fuse fuse_of(int32_t camera);

/// The fuse ID of the camera that the program selects.
Fuse fitted_module();

uint32_t crc_of(const void* bytes, size_t size);
uint64_t field(const uint8_t* bytes, size_t width);

/// Where the claims of a record lie, and who may read it.
struct RecordForm {
  size_t width;  ///< bytes of a claim
  size_t fuse;
  size_t crc;
  size_t covered;
  bool zero_first_matches = true;
};
enum class Binding { module, none, other };

struct SecondOpinion {
  bool crc_good;
  uint64_t valid_word;
  Binding binding;
  Fuse fuse;
  Fuse module;  ///< as the rule on a zero first word leaves it

  bool is_valid(uint64_t first, uint64_t last) const {
    return valid_word % 1000 == 99 && valid_word / 1000 >= first && valid_word / 1000 <= last;
  }
  bool is_bound() const { return binding != Binding::other; }
};
SecondOpinion judged(const uint8_t* record, const RecordForm& form, const Fuse& module);

/// The bytes that a reader gets: of the cache file when it is there, else of the camera's node.
struct Source {
  const File* file;  ///< null: neither
  bool is_cache;
  uint8_t bytes[5120];  ///< zeros behind what the file holds
  size_t count;         ///< that the file holds of what was asked for
};
/// `node` null: the cache file alone.
const Source& source_of(const char* cache, const char* node, size_t offset, size_t length,
                        size_t cache_offset = 0);

/// The file's name for the selected camera.
const char* of_camera(const char* main, const char* front, const char* sub);

/// The path of the kernel's export of that camera.
const char* kernel_export();

}  // namespace fuzz

#endif
