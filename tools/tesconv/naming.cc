// Output naming of tesconv: name templates with "#", sequences (-n), output
// directories, and the overwrite policies with their "%s_%d%s" renaming.
#include <sys/stat.h>

#include <mutex>

#include "imgproc/path_text.h"
#include "tools/tesconv/tesconv.h"

namespace quilla {

namespace {

std::mutex g_claims_mutex;

bool PathExists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

bool IsDirectory(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string JoinDir(const std::string &dir, const std::string &name) {
  if (dir.empty()) return name;
  return dir.back() == '/' ? dir + name : dir + "/" + name;
}

}  // namespace

bool OutputClaims::Taken(const std::string &path) const {
  for (const std::string &c : claimed_)
    if (c == path) return true;
  return PathExists(path);
}

std::string OutputClaims::Claim(const std::string &path, Overwrite policy) {
  std::lock_guard<std::mutex> lock(g_claims_mutex);
  std::string result = path;
  if (Taken(path)) {
    if (policy == Overwrite::kSkip) return "";
    if (policy == Overwrite::kRename)
      result = RenameOutputPath(path, [this](const std::string &p) { return Taken(p); });
  }
  claimed_.push_back(result);
  return result;
}

bool PlanJobs(const ConvOptions &opt, std::vector<ConvJob> *jobs, std::string *error) {
  jobs->clear();
  const std::string &o = opt.output;
  const bool to_dir = !o.empty() && (o.back() == '/' || IsDirectory(o));
  const bool to_template = !o.empty() && !to_dir;
  const bool numbered = to_template && o.find('#') != std::string::npos;

  if (opt.seq_start != kNoRange) {
    // Sequences: each file argument is an input template.
    for (const std::string &templ : opt.files) {
      for (long n = opt.seq_start; n <= opt.seq_end; n += opt.seq_step) {
        ConvJob job;
        job.input = NameFromTemplate(templ, static_cast<int>(n));
        if (to_dir) job.output = JoinDir(o, FileNamePart(job.input));
        else if (to_template) job.output = NameFromTemplate(o, static_cast<int>(n));
        else job.output = job.input;
        jobs->push_back(job);
      }
    }
    return true;
  }

  if (to_template && !numbered && opt.files.size() > 1) {
    *error = "-o \"" + o + "\": several files need a directory (ending with /) or a name with #";
    return false;
  }
  int number = 1;
  for (const std::string &f : opt.files) {
    ConvJob job;
    job.input = f;
    if (to_dir) job.output = JoinDir(o, FileNamePart(f));
    else if (numbered) job.output = NameFromTemplate(o, number);
    else if (to_template) job.output = o;
    else job.output = f;
    ++number;
    jobs->push_back(job);
  }
  return true;
}

}  // namespace quilla
