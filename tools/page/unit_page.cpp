#include "page/unit_page.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>

#include "inspect/phrases.h"
#include "page/ratio_chart.h"
#include "run/tuning_changes.h"
#include "run/verification_phrases.h"

namespace awbcal {

namespace {

// ---- verdicts ---------------------------------------------------------------------------------------------

void add_verdicts(Page& page, const UnitReport& report) {
  Table table({"record", "verdict", "where it stands", "what decided"});
  for (const VerifiedRecord& verified : report.verification.records) {
    const RecordVerdict& verdict = verified.verdict;
    if (is_of_group(verdict)) continue;
    std::string reason = reason_text(verdict);
    for (const std::string& other : verdict.others) reason += "; " + other;
    if (verified.margin) reason += "; " + margin_text(*verified.margin);
    table.row({record_title(*verdict.spec, verdict.camera),
               Cell(verdict_text(verified), verified.is_good() ? Style::good : Style::bad),
               verdict.record != nullptr ? place_text(report.phone, *verdict.record) : verdict.file, reason});
  }
  page.heading("Records");
  page.table(table);
  page.list(group_lines(report.verification));
}

void add_answers(Page& page, const Verification& verification) {
  Table table({"record", "accepted by", "refused by"});
  for (const VerifiedRecord& verified : verification.records) {
    if (verified.answers.empty()) continue;
    std::vector<std::string> others = answering(verified.answers, Acceptance::refused);
    for (const std::string& function : answering(verified.answers, Acceptance::not_reached))
      others.push_back(function + " (not reached)");
    table.row({record_title(*verified.verdict.spec, verified.verdict.camera),
               fmt::format("{}", fmt::join(answering(verified.answers, Acceptance::accepted), ", ")),
               fmt::format("{}", fmt::join(others, ", "))});
  }
  page.heading("What the library makes of them");
  page.table(table);
  for (const auto& [function, reason] : never_passing(verification))
    page.paragraph(fmt::format("{} {}", function, reason));
}

// ---- a camera ---------------------------------------------------------------------------------------------

void add_ratios(Page& page, const Verification& verification, calib::Camera camera) {
  std::vector<RatioPoint> points;
  std::vector<Limit> limits;
  for (const VerifiedRecord& verified : verification.records) {
    const auto& [spec, of, finding, record, file, others] = verified.verdict;
    if (!is_measured(verified) || of != camera) continue;
    const auto words = calib::record_at<calib::AwbRecord>(record->bytes.data());
    points.push_back({.name = spec->name,
                      .rg = words.rg / 1024.0,
                      .bg = words.bg / 1024.0,
                      .result = verdict_text(verified),
                      .is_bad = !verified.is_good()});
    if (verified.limit != nullptr) add_limit(limits, *verified.limit);
  }
  if (points.empty()) return;
  page.chart({.kind = ChartKind::ratios,
              .caption = fmt::format("{} camera, R/G against B/G", camera_name(camera)),
              .tables = {golden_table(limits), point_table(points)}});
}

/// Mesh tables of the tuning that are equal, before and after.
struct EqualMeshes {
  std::string names;
  calib::MeshTable before;
  calib::MeshTable after;
};

bool is_equal(const calib::MeshTable& a, const calib::MeshTable& b) {
  return memcmp(a.gains, b.gains, sizeof a.gains) == 0;
}

std::vector<EqualMeshes> meshes_of(const TuningBlock& before, const TuningBlock& after) {
  std::vector<EqualMeshes> groups;
  for (const auto& [name, offset] : kMeshPlaces) {
    const auto old = before.get<calib::MeshTable>(offset);
    const auto now = after.get<calib::MeshTable>(offset);
    const auto same = std::ranges::find_if(groups, [&old, &now](const EqualMeshes& group) {
      return is_equal(group.before, old) && is_equal(group.after, now);
    });
    if (same == groups.end()) {
      groups.push_back({name, old, now});
    } else {
      same->names += fmt::format(", {}", name);
    }
  }
  return groups;
}

HeatMap map_of(const calib::MeshTable& table, size_t channel, const char* when) {
  const std::span<const float> gains = table.gains[channel];
  return {fmt::format("channel {} {}: corner {:.4f}, centre {:.4f}", channel + 1, when, gains[kMeshCorner],
                      gains[kMeshCentre]),
          gains, kMeshColumns};
}

void add_meshes(Page& page, const TuningBlock& before, const TuningBlock& after) {
  for (const EqualMeshes& group : meshes_of(before, after)) {
    if (is_equal(group.before, group.after)) {
      page.subheading(fmt::format("Lens shading, {}: unchanged", group.names));
      continue;
    }
    page.subheading(fmt::format("Lens shading, {}", group.names));
    std::vector<HeatMap> maps;
    for (size_t channel = 0; channel < std::size(group.before.gains); ++channel) {
      maps.push_back(map_of(group.before, channel, "before"));
      maps.push_back(map_of(group.after, channel, "after"));
    }
    page.heat_maps(maps);
  }
}

void add_table(Page& page, const TuningTable& table) {
  if (!table.has_changed) return page.subheading(fmt::format("{}: unchanged", table.title));
  if (table.part == TuningPart::reference_points || table.part == TuningPart::led_table) {
    page.chart({.kind = ChartKind::change,
                .caption = fmt::format("{}, before and after", table.title),
                .tables = {{"rows", table.table}}});
    return;
  }
  page.subheading(table.title);
  page.table(table.table);
  if (table.part == TuningPart::triples) page.paragraph(kTripleNote);
}

void add_start(Page& page, const UnitReport& report, calib::Camera camera) {
  const auto& [start, is_golden_assumed] = report.starts.at(camera);
  page.heading(fmt::format("The {} camera's start", camera_name(camera)));
  std::vector<std::string> sentences;
  for (const CorrectionStory& story : start.corrections) sentences.push_back(story.sentence);
  page.list(sentences);
  if (is_golden_assumed) page.paragraph(assumed_golden_text());
  add_ratios(page, report.verification, camera);
  page.subheading("Where its records come from");
  page.table(source_table(start));
  for (const auto& [of, tables] : tuning_tables(start.before, start.after)) {
    page.subheading(fmt::format("{}:", of));
    for (const TuningTable& table : tables) {
      add_table(page, table);
      if (table.part == TuningPart::meshes) add_meshes(page, start.before.mesh, start.after.mesh);
    }
  }
}

/// As fuse_text() has it: four words of eight digits.
constexpr size_t kFuseIdSize = 4 * 8 + 3;

bool is_fuse_id(std::string_view text) {
  if (text.size() < kFuseIdSize) return false;
  for (size_t i = 0; i < kFuseIdSize; ++i) {
    if (i % 9 == 8 ? text[i] != ' ' : std::isxdigit(static_cast<unsigned char>(text[i])) == 0) return false;
  }
  return true;
}

/// Enough of each fuse ID stays to tell modules of a phone apart, and not enough to know them by.
std::string without_fuse_ids(std::string_view html) {
  constexpr size_t kDigits = 4;
  std::string result;
  while (!html.empty()) {
    const bool is_id = is_fuse_id(html);
    result += html.substr(0, is_id ? kDigits : 1);
    if (is_id) result += "...";
    html.remove_prefix(is_id ? kFuseIdSize : 1);
  }
  return result;
}

}  // namespace

std::string unit_page(const UnitReport& report) {
  const Verification& verification = report.verification;
  const Outcome outcome = verification.outcome();
  Page page(report.title);
  page.result(fmt::format("{}: {}", outcome_name(outcome), summary_text(verification)),
              outcome == Outcome::pass ? Style::good : Style::bad);
  page.list(input_lines(report.phone));
  page.heading("Modules");
  page.list(module_lines(report.modules, verification.assumed));
  add_verdicts(page, report);
  add_answers(page, verification);
  for (const auto& [camera, start] : report.starts) add_start(page, report, camera);
  return report.is_redacted ? without_fuse_ids(page.html()) : page.html();
}

}  // namespace awbcal
