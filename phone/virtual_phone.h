// An Android phone in a folder, for a host without a phone.
//
// The library on it is the shipped one: what is replaced is the C library's file calls, the property service,
// the log and the log-mask service, by symbol interposition. Linked into a program (phone_linked) or preloaded
// (libvirtual_phone.so, see preload.cpp), it redirects these paths, and nothing else, into the phone's folder:
//
//   /data/misc/camera  /sys/android_camera_awb_cal  /proc/emmc  /proc/mtd  /dev/block  /dev/mtd
//
// The folder is plain, and may be looked at and edited between and during runs:
//
//   properties              lines as services/properties_file.h reads them
//   faults                  faults that strike from the next attach on; its first lines explain the format
//   factory/                lens_shading_{main,front,sub}.bin and inhouse_3d.bin, for the boot export
//   nand                    of a phone with a NAND chip: its bad blocks, counters and violations
//   data/ dev/ proc/ sys/   the phone's files under their own names
//
// One phone is attached at a time. A VirtualPhone is for one thread at a time; the interposed calls may come
// from any thread. The log and log-mask services leave a foreign value in errno behind each call, as the
// platform's may: code that needs its errno has to keep it.
//
// What it does not simulate:
//   - permissions, SELinux and the rules of sysfs and procfs: a phone's file has what the host's file has;
//   - paths relative to a working directory or to a directory's descriptor inside the phone, calls that name
//     paths and are not interposed (scandir, realpath, utimensat, ...), memory maps of a device, and programs
//     that make system calls themselves or were linked against a C library older than 2.33 (their stat());
//   - streams on a device: fopen() opens it, but what the stream transfers is plain file I/O on the content, as
//     the C library makes those calls where nobody can be put in between. The streams' calls that are
//     intercepted are fopen, freopen, fclose, fread, fwrite, fgets, fputs, fseek, fflush; a fault leaves
//     ferror() unset;
//   - caches: what is written is on the medium at once, on eMMC also after a power cut. A real kernel may not have
//     written it yet;
//   - NAND out-of-band data, page order within a block, wear, bit rot without a fault. The chip shows one erase
//     region, as a NOR chip's driver would, so that MEMGETREGIONINFO can be tried;
//   - two processes that use one NAND chip at the same time: each writes its own counters;
//   - property triggers, watches and persistence rules; "ro." properties alone are protected, from
//     property_set.
#ifndef PHONE_VIRTUAL_PHONE_H
#define PHONE_VIRTUAL_PHONE_H

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

enum class Storage { emmc, nand };

/// What a raw NAND chip is made of. The partition "mfg" is mtd<mtd_number> and spans the whole chip.
struct NandGeometry {
  uint32_t erase_size = 128 * 1024;  ///< bytes of an erase block
  uint32_t blocks = 16;              ///< erase blocks of the partition
  int mtd_number = 3;
  std::vector<uint32_t> factory_bad = {};  ///< block numbers marked bad from the start
};

/// A phone to be made. Property "ro.pagesize" is set from `page_size`; every fuse ID starts absent.
struct Options {
  Storage storage = Storage::emmc;
  uint64_t partition_size = 1024 * 1024;  ///< eMMC only; the image is filled with `fill`
  uint8_t fill = 0x00;                    ///< eMMC only; a fresh NAND is all ones
  int page_size = 4096;                   ///< 2048 or 4096: the record area starts at 0x10000 or 0x20000
  NandGeometry nand = {};
};

/// One line that a program logged.
struct LogLine {
  std::string tag;
  int priority;  ///< android_LogPriority: 3 debug, 4 info, 6 error
  std::string text;
  bool operator==(const LogLine&) const = default;
};

/// One intercepted call on a redirected path or on a descriptor opened through one. `path` is the phone's
/// path. MTD requests are told apart here ("ioctl MEMERASE"); a Fault matches them all by "ioctl".
struct Call {
  std::string name;  ///< base name without 64-bit or fortify suffixes: "open", "read", "lseek", "ioctl", ...
  std::string path;
  bool operator==(const Call&) const = default;
};

/// Something that goes wrong, as data. A call matches by name ("*": any call of the journal) and path (exact,
/// or a prefix that ends in '*', or empty: any). The nth match fails; `from_then_on`, all later ones too.
/// `transfer` >= 0 makes a read or write move that many bytes (at most what was asked) instead of failing;
/// otherwise the call returns its failure value with `error` in errno, and has no effect. A close() or
/// fclose() that fails has closed all the same, as on Linux. With `power_cut` the power goes with the call: it
/// has no effect but the `transfer`, and from then on every call of the journal but close() fails with EIO and
/// has none, until reboot(), clear_faults() or the next attach. Names besides the C library's, which are not in
/// the journal and which "*" does not mean: "property_get",
/// "__system_property_get" (nothing is found), "property_set", with the property's name as path;
/// "__android_log_print", with the tag as path (the line is lost); and, in programs that link
/// phone_malloc_faults, "malloc": malloc() and calloc() called by libawb_calibration.so.
struct Fault {
  std::string call = "*";
  std::string path = {};
  unsigned nth = 1;
  bool from_then_on = false;
  int error = 5;  // EIO
  long transfer = -1;
  bool power_cut = false;
};

/// What goes wrong on the NAND chip when `op` reaches `block` for the nth time (from 1). A transfer reaches
/// every block that it touches once. std::invalid_argument for what an operation cannot suffer: only `fail`
/// for ask_bad and ecc_stats (which has no block).
struct NandFault {
  enum class Op { erase, program, read, ask_bad, ecc_stats } op = Op::erase;
  enum class Effect {
    fail,     ///< the call fails with EIO; an erase or program leaves the first half of the block, or of
              ///< what was to be written in it, done
    corrupt,  ///< the call succeeds, but the lowest bit of one byte that it moves in the block is wrong, from
              ///< now on (program) or in this transfer only (read)
    ecc_corrected,  ///< read: the data is right, the `corrected` counter moves by one
    ecc_failed,     ///< read: the data is as stored, the `failed` counter moves by one, the call succeeds
    power_cut  ///< erase, program: the call fails with what Fault::power_cut says; Nand::clear_faults() ends it
               ///< as well
  } effect = Effect::fail;
  int64_t block = -1;  ///< -1: any block
  unsigned nth = 1;
  bool from_then_on = false;
  int64_t byte = 0;   ///< for corrupt: which of the bytes moved in the block; from their end if negative, and
                      ///< the nearest one if there is no such byte
  int64_t done = -1;  ///< for power_cut: how many of the bytes moved in the block are done; negative: half
};

/// Something that a real chip or kernel would refuse or suffer from, and that correct software never asks
/// for.
struct NandViolation {
  std::string what;  ///< "unaligned erase", "erase beyond the end", "erase of a bad block", "unaligned
                     ///< write", "program of a bad block", "program of a block that was not erased"
  uint64_t offset;
};

/// The attached phone's NAND chip; its content is the file dev/mtd/mtdN, one byte per byte.
class Nand {
 public:
  virtual ~Nand() = default;
  virtual const NandGeometry& geometry() const = 0;
  virtual bool is_bad(uint32_t block) const = 0;
  virtual void mark_bad(uint32_t block) = 0;  ///< a grown bad block
  virtual std::vector<uint8_t> block_bytes(uint32_t block) const = 0;
  virtual void set_block_bytes(uint32_t block, const std::vector<uint8_t>& bytes) = 0;  ///< as programmed
  virtual unsigned erase_count(uint32_t block) const = 0;
  virtual unsigned program_count(uint32_t block) const = 0;
  virtual void add_fault(const NandFault& fault) = 0;
  virtual void clear_faults() = 0;    ///< also powers the phone on again
  virtual void save_at_detach() = 0;  ///< the folder's file "nand" is written then alone: for long runs
  virtual std::vector<NandViolation> violations() const = 0;  ///< also those of earlier attaches
};

class VirtualPhone {
 public:
  /// Makes a new phone in `dir` (created; an existing phone there is refused with std::runtime_error),
  /// attaches it to this process and boots it: the calibration export is there.
  static VirtualPhone create(const std::filesystem::path& dir, const Options& options = {});

  /// Attaches the phone that is in `dir`; std::runtime_error if there is none or if one of its files cannot
  /// be read, std::logic_error if a phone is attached already.
  static VirtualPhone attach(const std::filesystem::path& dir);

  VirtualPhone(VirtualPhone&& other) noexcept;
  VirtualPhone& operator=(VirtualPhone&&) = delete;
  ~VirtualPhone();  ///< detaches; the folder stays

  const std::filesystem::path& dir() const { return dir_; }

  /// The host file behind a phone path: "/data/misc/camera/awb_cal" -> <dir>/data/misc/camera/awb_cal.
  std::filesystem::path host_path(std::string_view phone_path) const;

  /// Stops (or resumes) redirection; log, mask and properties stay.
  void set_redirection(bool on);

  // ---- properties: <dir>/properties, lines as phone/services/properties_file.h reads them -----
  /// std::invalid_argument for what cannot be a property.
  void set_property(const std::string& name, const std::string& value);
  /// The file is written once. What cannot be a property is left out, as a phone's service would not hold it.
  void set_properties(const std::map<std::string, std::string>& properties);
  void unset_property(const std::string& name);
  std::string property(const std::string& name, const std::string& otherwise = "") const;

  // ---- log ------------------------------------------------------------------------------------------------
  std::vector<LogLine> take_log();                 ///< the lines since the last take, oldest first
  void set_log_mask(unsigned mask);                ///< what the log-mask service answers; at first ~0u
  void print_log_to(std::FILE* stream);            ///< as logcat's brief format; null: nowhere
  std::vector<std::string> take_mask_questions();  ///< tags that asked the log-mask service, in order

  // ---- calibration partition and kernel -------------------------------------------------------------------
  /// The partition's bytes as the kernel at boot sees them: the eMMC image, or the NAND's good blocks in
  /// order.
  std::vector<uint8_t> partition() const;
  void write_partition(uint64_t offset, const void* data, size_t size);  ///< below every fault; eMMC or NAND

  /// Rebuilds the kernel's calibration export under /sys/android_camera_awb_cal from the partition and from
  /// the lens-shading files <dir>/factory/lens_shading_{main,front,sub}.bin (bytes 64 to 3647 of the export).
  void reboot();

  // ---- faults and what was called -------------------------------------------------------------------------
  void add_fault(const Fault& fault);
  void clear_faults();              ///< those of calls, and a power cut; the NAND chip has its own
  unsigned struck_faults() const;   ///< how often a Fault struck since the last clear; a sweep ends at 0
  std::vector<Call> take_calls();   ///< the intercepted calls since the last take
  size_t open_descriptors() const;  ///< descriptors now open on redirected paths

  Nand& nand();  ///< throws std::logic_error on an eMMC phone

 private:
  explicit VirtualPhone(std::filesystem::path dir);
  std::filesystem::path dir_;
};

}  // namespace phone

#endif
