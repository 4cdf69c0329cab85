// The batch conversion dialogs: Multi Convert (QuillMultiConvert) converts
// a list of files into one format and directory, Sequence Convert
// (QuillSeqConvert) a numbered series named by a template.  Go runs the
// conversion as a work procedure, one finished file per call, with the
// progress dialog and its Stop; worker threads prepare the files ahead.
#ifndef QUILLA_FILES_BATCH_X_H
#define QUILLA_FILES_BATCH_X_H

#include <X11/Intrinsic.h>

#include <string>
#include <vector>

namespace quilla {

// Opens Multi Convert (one at a time: an open one is raised) and adds
// `files` to its input list.  Returns its shell.
Widget OpenMultiConvert(Widget owner, const std::vector<std::string> &files = {});
// Opens Sequence Convert (one at a time).  Returns its shell.
Widget OpenSeqConvert(Widget owner);

// The dialogs now shown, or nullptr; whether a batch is running (one at a
// time, application-wide).  For tests and scripted use.
Widget ShownMultiConvert();
Widget ShownSeqConvert();
bool BatchRunning();

// What "Save Script..." writes after its file selector: the converter
// command line of the dialog's state.  False with the reason in *error.
bool WriteBatchScript(Widget dialog, const std::string &path, std::string *error);

}  // namespace quilla

#endif
