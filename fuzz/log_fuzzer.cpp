// Any bytes as a log, a bug report or an archive of them: read, told, and told the same when they come in pieces.

#include <cstdlib>

#include "inspect/archive.h"
#include "inspect/errors.h"
#include "log/log_comparison.h"
#include "log/log_story.h"

namespace {

/// A stranger's text may not cost more than what is kept of it.
void check_bounds(const awbcal::LogStory& story, size_t size) {
  if (story.acts.size() > awbcal::kMostActs || story.processes.size() > awbcal::kMostProcesses) std::abort();
  const bool is_packed = !story.input.files.empty() || story.lines > size;
  if (!is_packed && story.library_lines() > size) std::abort();
  for (const awbcal::ActStory& each : story.acts) {
    if (each.act.candidates == 0 || each.sentence.empty() || each.act.last_line < each.act.first_line)
      std::abort();
  }
}

/// The same bytes, fed in pieces of one to seven, are the same lines.
void check_pieces(const awbcal::LogStory& story, std::string_view text) {
  awbcal::Recogniser recogniser;
  awbcal::LogReader reader(recogniser);
  for (size_t i = 0, piece = 1; i < text.size(); i += piece, piece = piece % 7 + 1)
    reader.feed(text.substr(i, piece));
  reader.finish_file();
  if (reader.lines() != story.lines || recogniser.finish().size() != story.acts.size()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    const awbcal::LogStory story = awbcal::tell_log_bytes("x", {data, size});
    check_bounds(story, size);
    if (!awbcal::is_packed({data, size})) check_pieces(story, {reinterpret_cast<const char*>(data), size});
    awbcal::Phone phone{.name = "x"};
    phone.properties = story.properties;
    awbcal::compare_with_phone(story, phone);
  } catch (const awbcal::InputError&) {
    // A message is an answer.
  }
  return 0;
}
