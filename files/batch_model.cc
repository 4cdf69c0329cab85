// Batch conversion without the toolkit: one file's conversion, the runs, the
// sequence set-up and the converter scripts.
#include "files/batch_model.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <thread>

#include "core/atomic_write.h"
#include "files/batch_pipeline.h"
#include "files/load_model.h"
#include "imgproc/op_args.h"
#include "imgproc/path_text.h"

namespace quilla {

namespace {

bool Exists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

// Whether two paths name the same file: the same text, or the same inode
// ("./a.png" and "a.png", a link).
bool SameFile(const std::string &a, const std::string &b) {
  if (a == b) return true;
  struct stat sa, sb;
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

// A path for telling files apart before they exist: the real directory and
// the name.
std::string ComparablePath(const std::string &path) {
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  char resolved[PATH_MAX];
  if (!::realpath(dir.c_str(), resolved)) return path;
  return std::string(resolved) + "/" + path.substr(slash == std::string::npos ? 0 : slash + 1);
}

// The name "Rename" would have started from when `path` is one of its
// names ("a_3.png" from "a.png"), else `path`.
std::string RenamedFrom(const std::string &path) {
  const size_t slash = path.rfind('/');
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) dot = path.size();
  size_t digits = dot;
  while (digits > 0 && std::isdigit(static_cast<unsigned char>(path[digits - 1]))) --digits;
  if (digits == dot || digits == 0 || path[digits - 1] != '_') return path;
  return path.substr(0, digits - 1) + path.substr(dot);
}

std::string WithSlash(const std::string &dir) {
  return dir.empty() || dir.back() == '/' ? dir : dir + "/";
}

const char *FormatName(int format) {
  if (format < 0 || format == kDetectFormat) return "";
  const char *name = tslFormatGetName(format);
  return name ? name : "";
}

bool NameIs(int format, const char *name) { return std::strcmp(FormatName(format), name) == 0; }

// The Load settings a script must carry for inputs of `format`.
void AddLoadItems(const SettingsRecord &settings, bool pcd, bool raw, ScriptSettings *s) {
  const auto &load = settings.Load;
  if (pcd) s->pcd_base = load.PcdBase;
  if (!raw) return;
  s->raw_width = load.RawWidth;
  s->raw_height = load.RawHeight;
  s->raw_offset = load.RawOffset;
  if (load.ChannelType == TSL_CHANNEL_GREY) s->channel_type = 0;
  else s->channel_type = load.ChannelOrder == TSL_ORDER_BGR ? 2 : 1;
  s->channel_order = load.ChannelType == TSL_CHANNEL_PLANAR ? 1 : 0;
}

bool ToLong(const std::string &text, long min, long max, long *out) {
  if (text.empty()) return false;
  errno = 0;
  char *end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != 0 || v < min || v > max) return false;
  *out = v;
  return true;
}

int IndexOf(const std::string &word, std::initializer_list<const char *> list) {
  int k = 0;
  for (const char *w : list) {
    if (word == w) return k;
    ++k;
  }
  return -1;
}

}  // namespace

int LoadForBatch(const std::string &path, int format, const SettingsRecord &settings, TslPicture *pic,
                 std::string *error, TslProgressFunc progress, void *progress_data) {
  LoadRequest req;
  FillLoadRequest(settings, format == kDetectFormat ? -1 : format, 0, false, &req);
  req.params.flags |= TSL_FLAG_UNATTENDED;
  req.params.progress = progress;
  req.params.progress_data = progress_data;
  std::memset(pic, 0, sizeof *pic);
  const int code = tslLoad(path.c_str(), pic, &req.params);
  if (code != TSL_OK && code != TSL_STOPPED && error) {
    TslFileInfo info;
    tslFileInformation(path.c_str(), format == kDetectFormat ? -1 : format, 0, &info);
    *error = LoadErrorText(path.c_str(), code, info.message);
    tslFileInformationFree(&info);
  }
  return code & 0xff;
}

int BatchUi::LoadPicture(const std::string &path, int format, bool report_errors, const SettingsRecord &settings,
                         TslPicture *pic) {
  std::string error;
  const int code = LoadForBatch(path, format, settings, pic, &error);
  if (!error.empty() && report_errors) Message(error);
  return code;
}

std::string OverwriteQuestion(const std::string &path) { return "Do you want to overwrite\n<" + path + "> ?"; }

std::string ConvertingText(const std::string &name) { return "Converting \n    " + name; }

namespace {

// The output path with the output format's extension.
std::string WithFormatExtension(const std::string &output, int out_format) {
  std::vector<char> buffer(4096, 0);
  std::snprintf(buffer.data(), buffer.size(), "%s", output.c_str());
  if (out_format >= 0) tslSetCorrectExtension(buffer.data(), out_format);
  return buffer.data();
}

// The overwrite policy on an output that exists: false to leave it alone,
// else true with *target the name to write.
bool ApplyOverwritePolicy(BatchUi &ui, OverwritePolicy policy, std::string *target) {
  if (!Exists(*target)) return true;
  switch (policy) {
    case OverwritePolicy::kSkip: return false;
    case OverwritePolicy::kAsk: return ui.Confirm(OverwriteQuestion(*target));
    case OverwritePolicy::kRename: *target = RenameOutputPath(*target, Exists); return true;
    case OverwritePolicy::kReplace: return true;
  }
  return true;
}

// The save of a processed picture as the batch makes it: unattended, no
// progress, the run's conversion.
int SaveForBatch(BatchUi &ui, const SettingsRecord &settings, const ConvertRequest &request, std::string *target,
                 const TslPicture &pic) {
  SaveOptions options;
  options.unattended = true;
  options.remember = request.remember;
  options.progress = false;
  options.memory = request.memory;
  return SavePicture(ui, settings, target, request.out_format, pic, options);
}

// The end of a good save: the original goes when asked, unless it is the
// output itself.
void DeleteOriginal(const ConvertRequest &request, const std::string &target, ConvertOutcome *out) {
  out->saved = true;
  if ((request.flags & kBatchDeleteOriginal) && !SameFile(request.input, target))
    out->deleted = ::unlink(request.input.c_str()) == 0;
}

}  // namespace

int ConvertOneFile(BatchUi &ui, const SettingsRecord &settings, const ConvertRequest &request,
                   ConvertOutcome *outcome) {
  ConvertOutcome local;
  ConvertOutcome &out = outcome ? *outcome : local;
  out = ConvertOutcome();
  const bool report = !(request.flags & kBatchSuppressErrors);

  TslPicture pic;
  std::memset(&pic, 0, sizeof pic);
  const int loaded = ui.LoadPicture(request.input, request.in_format, report, settings, &pic);
  if (loaded != TSL_OK) {
    if (pic.pixels) tslFree(&pic);
    return report ? 0 : 1;
  }
  // An operation the picture does not suit leaves it as it was; running
  // out of memory gives up the file.
  if (request.operations && OpRunProcessList(&pic, *request.operations) == kOpNoMemory) {
    tslFree(&pic);
    if (report) ui.Message(LoadErrorText(request.input.c_str(), TSL_ERR_MEMORY, nullptr));
    return report ? 0 : 1;
  }

  std::string target = WithFormatExtension(request.output, request.out_format);
  if (!ApplyOverwritePolicy(ui, request.overwrite, &target)) {
    tslFree(&pic);
    out.skipped = true;
    return 1;
  }
  const int saved = SaveForBatch(ui, settings, request, &target, pic);
  tslFree(&pic);
  out.written = target;
  if (saved != TSL_OK) return 0;
  DeleteOriginal(request, target, &out);
  return 1;
}

int FinishPreparedFile(BatchUi &ui, const SettingsRecord &settings, const ConvertRequest &request, PreparedFile &file,
                       ConvertOutcome *outcome) {
  ConvertOutcome local;
  ConvertOutcome &out = outcome ? *outcome : local;
  out = ConvertOutcome();
  const bool report = !(request.flags & kBatchSuppressErrors);
  if (file.load_code != TSL_OK || file.no_memory) {
    if (report && file.load_code != TSL_OK && !file.load_error.empty()) ui.Message(file.load_error);
    if (report && file.no_memory) ui.Message(LoadErrorText(request.input.c_str(), TSL_ERR_MEMORY, nullptr));
    return report ? 0 : 1;
  }
  std::string target = WithFormatExtension(request.output, request.out_format);
  if (!ApplyOverwritePolicy(ui, request.overwrite, &target)) {
    out.skipped = true;
    return 1;
  }
  out.written = target;
  if (!file.saved) {
    // The save needed the run's conversion before it was known.
    if (SaveForBatch(ui, settings, request, &target, file.pic) != TSL_OK) return 0;
    out.written = target;
  } else {
    for (const std::string &note : file.save_notes) ui.Message(note);
    int code = file.save_code;
    if (code == TSL_OK) code = PutInPlace(file.temp, target);
    file.temp.clear();
    if (code == kSaveCancelled) {
      ui.Message(kConvertErrorText);
      return 0;
    }
    if (code != TSL_OK) {
      ui.Message(SaveErrorText(target.c_str(), code));
      return 0;
    }
  }
  DeleteOriginal(request, target, &out);
  return 1;
}

std::string MultiOutputPath(const std::string &out_dir, const std::string &input) {
  const std::string dir = out_dir.empty() ? DirectoryWithSlash(input) : WithSlash(out_dir);
  return dir + FileNameOnly(input.c_str());
}

std::string JoinTemplate(const std::string &dir, const std::string &file) { return WithSlash(dir) + file; }

bool MakeSequenceSetup(const SequenceFields &f, SequenceSetup *setup, std::string *error) {
  if (f.in_file.empty()) {
    *error = "The input filename is missing !!";
    return false;
  }
  if (f.out_file.empty()) {
    *error = "The output filename is missing !!";
    return false;
  }
  SequenceSetup s;
  s.in_template = JoinTemplate(f.in_dir, f.in_file);
  s.out_template = JoinTemplate(f.out_dir.empty() ? f.in_dir : f.out_dir, f.out_file);
  s.in_format = f.in_format;
  s.out_format = f.out_format;
  // The fields are 16-bit; a reversed range or a step below 1 means the
  // single file named by the input template.
  auto clamp16 = [](long v) { return static_cast<int>(v < 0 ? 0 : v > 65535 ? 65535 : v); };
  s.start = clamp16(f.start);
  s.end = clamp16(f.end);
  s.step = f.step < 1 ? 0 : clamp16(f.step);
  if (f.start > f.end || f.step < 1) s.start = kNoSequenceRange;
  *setup = s;
  return true;
}

BatchRun BatchRun::Multi(const std::vector<std::string> &inputs, const std::string &out_dir, int out_format) {
  BatchRun run;
  run.out_format_ = out_format;
  for (const std::string &in : inputs) run.jobs_.push_back({in, MultiOutputPath(out_dir, in)});
  return run;
}

BatchRun BatchRun::Sequence(const SequenceSetup &setup) {
  BatchRun run;
  run.sequence_ = true;
  run.in_format_ = setup.in_format;
  run.out_format_ = setup.out_format;
  if (setup.start == kNoSequenceRange) {
    run.jobs_.push_back({setup.in_template, setup.out_template.empty() ? setup.in_template : setup.out_template});
  } else {
    for (long n = setup.start; n <= setup.end; n += setup.step)
      run.jobs_.push_back({NameFromTemplate(setup.in_template, static_cast<int>(n)),
                           NameFromTemplate(setup.out_template, static_cast<int>(n))});
  }
  return run;
}

BatchRun::BatchRun() = default;
BatchRun::BatchRun(BatchRun &&) noexcept = default;
BatchRun &BatchRun::operator=(BatchRun &&) noexcept = default;
BatchRun::~BatchRun() = default;

void BatchRun::SetThreads(unsigned threads) {
  if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
  threads_ = threads;
}

ConvertRequest BatchRun::RequestFor(const BatchJob &job) {
  ConvertRequest request;
  request.input = job.input;
  request.output = job.output;
  request.in_format = in_format_;
  request.out_format = out_format_;
  request.operations = &operations;
  request.flags = flags;
  request.remember = remember_;
  request.overwrite = sequence_ ? OverwritePolicy::kReplace : overwrite;
  request.memory = &memory_;
  return request;
}

void BatchRun::StartPipeline(const SettingsRecord &settings) {
  // A file that an earlier one may write (its output, or a name "Rename"
  // may give) or remove (an input seen before, with "Delete Original") is
  // read only after the earlier files are finished, as in the one-thread run.
  const bool renames = !sequence_ && overwrite == OverwritePolicy::kRename;
  std::set<std::string> earlier;
  std::vector<PipelineJob> jobs;
  for (const BatchJob &job : jobs_) {
    PipelineJob p;
    p.input = job.input;
    p.output = WithFormatExtension(job.output, out_format_);
    const std::string in = ComparablePath(job.input);
    p.after_earlier = earlier.count(in) > 0 || (renames && earlier.count(ComparablePath(RenamedFrom(job.input))) > 0);
    earlier.insert(in);
    earlier.insert(ComparablePath(p.output));
    jobs.push_back(std::move(p));
  }
  pipeline_ = std::make_unique<BatchPipeline>(std::move(jobs), settings, in_format_, out_format_, operations, threads_);
}

bool BatchRun::Ready(const SettingsRecord &settings, std::chrono::milliseconds wait) {
  if (finished_ || stop_ || threads_ <= 1 || index_ >= jobs_.size()) return true;
  if (!pipeline_) StartPipeline(settings);
  return pipeline_->Ready(index_, wait);
}

void BatchRun::Finish(bool refresh) {
  pipeline_.reset();  // what the workers made ahead is not wanted
  finished_ = true;
  refresh_ = refresh;
}

bool BatchRun::Step(BatchUi &ui, const SettingsRecord &settings) {
  if (finished_) return true;
  if (stop_ || index_ >= jobs_.size()) {
    Finish(!(stop_ && sequence_));
    return true;
  }
  const BatchJob &job = jobs_[index_];
  ui.ShowConverting(ConvertingText(FileNameOnly(job.input.c_str())));
  const ConvertRequest request = RequestFor(job);
  int go_on;
  if (threads_ > 1) {
    if (!pipeline_) StartPipeline(settings);
    PreparedFile file = pipeline_->Take(index_);
    go_on = FinishPreparedFile(ui, pipeline_->settings(), request, file);
    if (memory_ != kNoConversion) pipeline_->SetConversion(memory_);
  } else {
    go_on = ConvertOneFile(ui, settings, request);
  }
  ui.Advance();
  remember_ = true;
  ++index_;
  if (!go_on) {
    Finish(true);
    return true;
  }
  return false;
}

// ---- scripts

ScriptSettings MultiScript(const std::vector<std::string> &inputs, const std::string &out_dir, int out_format,
                           unsigned flags, const OpProcessList &operations, const SettingsRecord &settings) {
  ScriptSettings s;
  bool pcd = false, raw = false;
  for (const std::string &in : inputs) {
    const int f = tslFormatFromExtension(in.c_str());
    pcd = pcd || NameIs(f, "pcd");
    raw = raw || NameIs(f, "raw");
  }
  AddLoadItems(settings, pcd, raw, &s);
  s.output_format = FormatName(out_format);
  s.delete_original = (flags & kBatchDeleteOriginal) != 0;
  s.output = WithSlash(out_dir);  // a directory for the converter, whether it exists yet or not
  s.operations = operations;
  s.inputs = inputs;
  return s;
}

ScriptSettings SequenceScript(const SequenceSetup &setup, unsigned flags, const OpProcessList &operations,
                              const SettingsRecord &settings) {
  ScriptSettings s;
  AddLoadItems(settings, NameIs(setup.in_format, "pcd"), NameIs(setup.in_format, "raw"), &s);
  s.sequence = true;
  s.input_format = FormatName(setup.in_format);
  s.start = setup.start;
  s.end = setup.end;
  s.step = setup.step;
  s.output_format = FormatName(setup.out_format);
  s.delete_original = (flags & kBatchDeleteOriginal) != 0;
  s.output = setup.out_template;
  s.operations = operations;
  s.inputs = {setup.in_template};
  return s;
}

bool ReadScriptLine(const std::string &line, ScriptSettings *script, std::string *error) {
  const std::vector<std::string> w = SplitWords(line);
  if (w.empty() || w[0] != "tesconv") {
    *error = "not a converter script";
    return false;
  }
  ScriptSettings s;
  auto missing = [&](size_t i, size_t n) {
    if (i + n < w.size()) return false;
    *error = w[i] + ": a value is missing";
    return true;
  };
  auto bad = [&](const std::string &option, const std::string &value) {
    *error = option + ": bad value \"" + value + "\"";
    return false;
  };
  bool have_out = false;
  size_t i = 1;
  while (i < w.size() && w[i].size() > 1 && w[i][0] == '-') {
    const std::string &a = w[i];
    long v[3];
    if (a == "-npcd") {
      if (missing(i, 1)) return false;
      if (!ToLong(w[i + 1], 0, 6, &v[0])) return bad(a, w[i + 1]);
      s.pcd_base = static_cast<int>(v[0]);
      i += 2;
    } else if (a == "-size") {
      if (missing(i, 1)) return false;
      int width = 0, height = 0, n = 0;
      long offset = 0;
      if (std::sscanf(w[i + 1].c_str(), "%dx%d+%ld%n", &width, &height, &offset, &n) != 3 ||
          static_cast<size_t>(n) != w[i + 1].size() || width < 0 || height < 0 || offset < 0)
        return bad(a, w[i + 1]);
      s.raw_width = width, s.raw_height = height, s.raw_offset = offset;
      i += 2;
    } else if (a == "-ctype" || a == "-corder") {
      if (missing(i, 1)) return false;
      const int k = a == "-ctype" ? IndexOf(w[i + 1], {"grey", "rgb", "bgr", "rgba", "abgr", "cmy", "cmyk"})
                                  : IndexOf(w[i + 1], {"inter", "seq", "sep"});
      if (k < 0) return bad(a, w[i + 1]);
      (a == "-ctype" ? s.channel_type : s.channel_order) = k;
      i += 2;
    } else if (a == "-in" || a == "-out") {
      if (missing(i, 1)) return false;
      if (tslFormatGetIndex(w[i + 1].c_str()) < 0) return bad(a, w[i + 1]);
      (a == "-in" ? s.input_format : s.output_format) = w[i + 1];
      have_out = have_out || a == "-out";
      i += 2;
    } else if (a == "-n") {
      if (missing(i, 3)) return false;
      for (int k = 0; k < 3; ++k)
        if (!ToLong(w[i + 1 + k], k == 2 ? -65535 : 0, 65535, &v[k])) return bad(a, w[i + 1 + k]);
      s.sequence = true;
      s.start = static_cast<int>(v[0]), s.end = static_cast<int>(v[1]), s.step = static_cast<int>(v[2]);
      i += 4;
    } else if (a == "-D") {
      s.delete_original = true;
      ++i;
    } else if (a == "-o") {
      if (missing(i, 1)) return false;
      s.output = w[i + 1];
      i += 2;
    } else {
      const int r = ParseOperation(w, &i, &s.operations, error);
      if (r < 0) return false;
      if (r == 0) {
        *error = "unknown option \"" + a + "\"";
        return false;
      }
    }
  }
  if (!have_out) {
    *error = "-out is missing";
    return false;
  }
  if (!s.sequence && !s.input_format.empty()) {
    *error = "-in belongs to a sequence (-n)";
    return false;
  }
  s.inputs.assign(w.begin() + static_cast<long>(i), w.end());
  if (s.inputs.empty()) {
    *error = "no input file";
    return false;
  }
  *script = s;
  return true;
}

bool WriteScriptFile(const std::string &path, const ScriptSettings &script) {
  return WriteFileAtomically(path, SaveScriptLine(script) + "\n");
}

bool ReadScriptFile(const std::string &path, ScriptSettings *script, std::string *error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "Can't open file : " + path;
    return false;
  }
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, 7, "tesconv") == 0) return ReadScriptLine(line, script, error);
  }
  *error = "not a converter script";
  return false;
}

}  // namespace quilla
