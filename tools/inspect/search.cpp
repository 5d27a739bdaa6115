#include "inspect/search.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <set>

#include "inspect/claims.h"
#include "inspect/phrases.h"
#include "records/record_layouts.h"

namespace awbcal {

namespace {

constexpr std::array<uint32_t, 2> kBases = {calib::kAreaBase4k, calib::kAreaBase2k};
/// Bad blocks and boot loaders move the area by whole blocks; the smallest in use has this size.
constexpr uint64_t kSmallestBlock = 0x4000;
constexpr uint32_t kCommonBlock = 0x20000;

// Bytes that were made to look like records everywhere end the search, not the patience.
constexpr size_t kMostHits = 1024;
/// Enough for the record area behind several bad blocks: what a way to read the bytes is tried on.
constexpr size_t kSample = 8 * 1024 * 1024;
constexpr size_t kMostChecked = 16 * 1024 * 1024;

// ---- records in bytes -------------------------------------------------------------------------------------

uint32_t word_at(std::span<const uint8_t> bytes, size_t at) {
  uint32_t word = 0;
  std::memcpy(&word, bytes.data() + at, sizeof word);
  return word;
}

bool is_finished(uint64_t valid_word) {
  return valid_word % calib::kVersionUnit == calib::kValidMark && valid_word / calib::kVersionUnit <= 3;
}

bool is_good(const Claims& claims) {
  return claims.has_valid_word && claims.has_good_crc() && claims.words.stored_crc != 0;
}

/// A record with a wrong checksum that can hardly be there by chance.
bool is_telling(const RecordSpec& spec, const Claims& claims, const Modules& modules) {
  if (!claims.has_valid_word) return false;
  const uint64_t valid_word = claims.words.valid_word;
  const bool is_judged_bad = spec.is_judged && valid_word % calib::kVersionUnit == 0 && valid_word > 0 &&
                             valid_word / calib::kVersionUnit <= 3;
  if (is_finished(valid_word) || is_judged_bad) return true;
  return std::any_of(modules.begin(), modules.end(), [&](const auto& module) {
    return module.second != calib::FuseWords{} && claims.words.fuse == module.second;
  });
}

/// Places of finished valid words, found by their first byte: most bytes of a partition are blank.
class ValidWords {
 public:
  explicit ValidWords(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  /// The next place; nothing at the end.
  std::optional<size_t> next() {
    while (version_ <= 3) {
      const uint32_t word = version_ * calib::kVersionUnit + calib::kValidMark;
      while (at_ + sizeof word <= bytes_.size()) {
        const void* found = std::memchr(bytes_.data() + at_, static_cast<uint8_t>(word), bytes_.size() - at_);
        if (found == nullptr) break;
        const auto place = static_cast<size_t>(static_cast<const uint8_t*>(found) - bytes_.data());
        at_ = place + 1;
        if (place + sizeof word <= bytes_.size() && word_at(bytes_, place) == word) return place;
      }
      ++version_;
      at_ = 0;
    }
    return std::nullopt;
  }

 private:
  std::span<const uint8_t> bytes_;
  uint32_t version_ = 0;
  size_t at_ = 0;
};

/// The bases that the area would have if one of the good records at `at` is where it belongs.
std::set<uint64_t> bases_of(std::span<const uint8_t> bytes, size_t at, size_t& checked) {
  std::set<uint64_t> bases;
  for (const RecordSpec& spec : record_specs()) {
    if (!spec.offset || field_of_kind(spec, FieldKind::valid_word) == nullptr) continue;
    if (at + spec.size > bytes.size()) continue;
    checked += spec.size;
    if (!is_good(claims_of(spec, bytes.subspan(at, spec.size)))) continue;
    for (int camid = 0; camid < (spec.is_per_camera ? 3 : 1); ++camid) {
      if (at >= area_offset(spec, camid)) bases.insert(at - area_offset(spec, camid));
    }
  }
  return bases;
}

/// Places anywhere with a good record, and the bases that they would have the area at.
std::map<uint64_t, int> bases_of_hits(std::span<const uint8_t> bytes) {
  std::map<uint64_t, int> bases;
  size_t hits = 0;
  size_t checked = 0;
  ValidWords words(bytes);
  while (const std::optional<size_t> at = words.next()) {
    const std::set<uint64_t> here = bases_of(bytes, *at, checked);
    for (const uint64_t base : here) ++bases[base];
    hits += here.empty() ? 0 : 1;
    if (hits >= kMostHits || checked >= kMostChecked) break;
  }
  return bases;
}

// ---- what can be done to the bytes ------------------------------------------------------------------------

/// A page of a NAND chip with its out-of-band bytes, and where those mark the block as bad.
struct PageLayout {
  uint32_t page;
  uint32_t spare;
  uint32_t pages_per_block;
  uint32_t bad_mark;
};

constexpr PageLayout kPageLayouts[] = {{512, 16, 32, 5},    {2048, 64, 64, 0},   {2048, 128, 64, 0},
                                       {4096, 128, 64, 0},  {4096, 224, 64, 0},  {4096, 256, 64, 0},
                                       {8192, 448, 128, 0}, {8192, 512, 128, 0}, {8192, 640, 128, 0}};

bool is_marked_bad(std::span<const uint8_t> block, const PageLayout& layout) {
  const size_t step = layout.page + layout.spare;
  for (size_t page = 0; page < 2; ++page) {
    const size_t mark = page * step + layout.page + layout.bad_mark;
    if (mark < block.size() && block[mark] != 0xFF) return true;
  }
  return false;
}

/// One way to take the bytes: as they are, or of a chip's good blocks without their out-of-band bytes, as the kernel's
/// reader delivers them. Put together only where they are looked at.
class Way {
 public:
  explicit Way(std::span<const uint8_t> bytes) : bytes_(bytes), size_(bytes.size()) {}
  Way(std::span<const uint8_t> bytes, const PageLayout& layout) : bytes_(bytes), layout_(&layout) {
    const size_t block_size = step() * layout.pages_per_block;
    for (size_t begin = 0; begin < bytes.size(); begin += block_size) {
      const auto block = bytes.subspan(begin, std::min(block_size, bytes.size() - begin));
      if (is_marked_bad(block, layout)) {
        ++bad_blocks_;
        continue;
      }
      good_blocks_.push_back(begin);
      size_ += (block.size() + layout.spare) / step() * layout.page;
    }
  }

  size_t size() const { return size_; }
  const PageLayout* layout() const { return layout_; }
  /// False: a dump that would end amid a page.
  bool is_likely(size_t dump_size) const { return layout_ == nullptr || dump_size % step() == 0; }

  /// At most `size` bytes; less where they end.
  Bytes part(size_t at, size_t size) const {
    Bytes part;
    put_part(at, size, part);
    return part;
  }
  /// The same into bytes that were used before.
  void put_part(size_t at, size_t size, Bytes& part) const {
    part.clear();
    const size_t end = std::min(size_, at + size);
    part.reserve(end - std::min(at, end));
    while (at < end) {
      const std::span<const uint8_t> run = run_at(at, end - at);
      part.insert(part.end(), run.begin(), run.end());
      at += run.size();
    }
  }

  /// What is said of the chip's bytes.
  std::string how() const {
    std::string how = fmt::format("raw NAND: pages of {} bytes, the {} out-of-band bytes after each left out",
                                  layout_->page, layout_->spare);
    if (bad_blocks_ > 0) how += fmt::format(", {} as well", counted(bad_blocks_, "bad block"));
    return how;
  }

 private:
  size_t step() const { return size_t{layout_->page} + layout_->spare; }

  /// Bytes that lie together, at most `most`.
  std::span<const uint8_t> run_at(size_t at, size_t most) const {
    if (layout_ == nullptr) return bytes_.subspan(at, most);
    const size_t page = at / layout_->page;
    const size_t in_page = at % layout_->page;
    const size_t block = good_blocks_[page / layout_->pages_per_block];
    return bytes_.subspan(block + page % layout_->pages_per_block * step() + in_page,
                          std::min(most, layout_->page - in_page));
  }

  std::span<const uint8_t> bytes_;
  const PageLayout* layout_ = nullptr;
  std::vector<size_t> good_blocks_ = {};  ///< where they begin
  size_t bad_blocks_ = 0;
  size_t size_ = 0;
};

/// The bytes as they are, and without the out-of-band bytes that they may have.
std::vector<Way> ways_to_read(std::span<const uint8_t> bytes) {
  std::vector<Way> ways = {Way(bytes)};
  const auto beginning = bytes.first(std::min(bytes.size(), kSample));
  for (const PageLayout& layout : kPageLayouts) ways.emplace_back(beginning, layout);
  return ways;
}

Bytes with_units_turned(Bytes bytes, size_t unit) {
  for (size_t at = 0; at + unit <= bytes.size(); at += unit) std::reverse(&bytes[at], &bytes[at] + unit);
  return bytes;
}

// ---- the best of them -------------------------------------------------------------------------------------

struct Count {
  int filled = 0;  ///< places that are not blank
  int good = 0;
  int telling = 0;

  bool makes_sense() const { return 2 * good > filled; }
};

/// The records where the layout has them, if the area begins at `base`.
Count count_at(const Way& way, uint64_t base, const Modules& modules) {
  Count count;
  Bytes bytes;
  for (const RecordSpec& spec : record_specs()) {
    if (!spec.offset) continue;
    for (int camid = 0; camid < (spec.is_per_camera ? 3 : 1); ++camid) {
      way.put_part(base + area_offset(spec, camid), spec.size, bytes);
      if (bytes.size() < spec.size || is_blank(bytes)) continue;
      const Claims claims = claims_of(spec, bytes);
      ++count.filled;
      count.good += is_good(claims) ? 1 : 0;
      count.telling += is_telling(spec, claims, modules) ? 1 : 0;
    }
  }
  return count;
}

/// The bases at which the phone looks, or where a file of the area alone has it.
std::vector<uint64_t> expected_bases(const SearchOptions& options, size_t size) {
  if (options.base) return {*options.base};
  std::vector<uint64_t> bases(kBases.begin(), kBases.end());
  if (size <= calib::kAreaBase2k) bases = {0};
  return bases;
}

/// Keeps the ways that are as good as the best.
class Best {
 public:
  /// An unlikely way has to be better than a likely one.
  void take(const Way& way, bool is_likely, uint64_t base, int count) {
    const int score = 2 * count + (is_likely ? 1 : 0);
    if (count == 0 || score < score_) return;
    if (score > score_) found_.clear();
    score_ = score;
    if (found_.size() < kMostReadings) found_.emplace_back(way.layout(), base);
  }
  bool is_found() const { return !found_.empty(); }
  std::vector<Reading> readings(const Bytes& bytes) const {
    std::vector<Reading> readings;
    for (const auto& [layout, base] : found_) {
      readings.push_back({.bytes = {}, .base = base});
      if (layout == nullptr) continue;
      const Way way(bytes, *layout);
      readings.back().bytes = way.part(0, way.size());
      readings.back().how = way.how();
    }
    return readings;
  }

 private:
  static constexpr size_t kMostReadings = 8;
  int score_ = 0;
  std::vector<std::pair<const PageLayout*, uint64_t>> found_;
};

int rank_of(uint64_t base) {
  if (base == kBases[0] || base == kBases[1] || base == 0) return 2;
  return base % kSmallestBlock == 0 ? 1 : 0;
}

std::vector<Reading> best_readings(const Bytes& bytes, const std::vector<Way>& ways,
                                   const SearchOptions& options) {
  Best expected;
  Best damaged;
  bool is_settled = false;
  for (const Way& way : ways) {
    const bool is_likely = way.is_likely(bytes.size());
    // A dump that ends amid a page has nothing to add to bytes that make sense as they are.
    if (is_settled && !is_likely) continue;
    for (const uint64_t base : expected_bases(options, way.size())) {
      const Count count = count_at(way, base, options.modules);
      is_settled = is_settled || (way.layout() == nullptr && count.makes_sense());
      expected.take(way, is_likely, base, count.good);
      damaged.take(way, is_likely, base, count.telling);
    }
  }
  if (expected.is_found()) return expected.readings(bytes);
  if (damaged.is_found()) return damaged.readings(bytes);
  Best elsewhere;
  for (const Way& way : ways) {
    if (!way.is_likely(bytes.size())) continue;
    for (const auto& [base, hits] : bases_of_hits(way.part(0, way.size())))
      elsewhere.take(way, true, base, 3 * hits + rank_of(base));
  }
  return elsewhere.readings(bytes);
}

}  // namespace

std::vector<Reading> search_records(const Bytes& bytes, const SearchOptions& options) {
  if (is_blank(bytes)) return {};
  if (options.as_they_are) return best_readings(bytes, {Way(bytes)}, options);
  constexpr std::pair<size_t, const char*> kTurns[] = {{4, "the four bytes of every word"},
                                                       {2, "the two bytes of every half-word"}};
  std::vector<Reading> readings = best_readings(bytes, ways_to_read(bytes), options);
  for (const auto& [unit, what] : kTurns) {
    if (!readings.empty()) break;
    const Bytes turned = with_units_turned(bytes, unit);
    readings = best_readings(turned, {Way(turned)}, options);
    for (Reading& reading : readings) {
      reading.bytes = turned;
      reading.how = fmt::format("{} in reverse order: turned round", what);
    }
  }
  return readings;
}

std::string shift_text(uint64_t base, std::optional<uint32_t> expected) {
  const uint64_t from =
      expected.value_or(page_size_of(base, expected) == 4096 ? calib::kAreaBase4k : calib::kAreaBase2k);
  if (base == from) return "";
  if (base == 0) return "the record area alone";
  if (base < from) return fmt::format("records 0x{:x} earlier than expected", from - base);
  const uint64_t shift = base - from;
  std::string text = fmt::format("records 0x{:x} later than expected", shift);
  if (shift % kCommonBlock == 0) {
    const uint64_t blocks = shift / kCommonBlock;
    text += blocks == 1 ? ": one bad block before them" : fmt::format(": {} bad blocks before them", blocks);
  }
  return text;
}

int page_size_of(uint64_t base, std::optional<uint32_t> expected) {
  if (expected) return *expected == calib::kAreaBase4k ? 4096 : 2048;
  if (base == calib::kAreaBase2k) return 2048;
  const bool fits_4k = base >= calib::kAreaBase4k && (base - calib::kAreaBase4k) % kCommonBlock == 0;
  const bool fits_2k = base >= calib::kAreaBase2k && (base - calib::kAreaBase2k) % kCommonBlock == 0;
  return fits_2k && !fits_4k ? 2048 : 4096;
}

}  // namespace awbcal
