// Fuzz target for the bookmark file reader.  Whatever the file holds, every
// bookmark keeps within the name and path lengths, the editor's line shows
// both, and the list written back reads back the same.
#include "browser/bookmarks.h"
#include "fuzz/side_fuzz.h"

using quilla::BookmarkList;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string &dir = sidefuzz::ScratchDir();
  const std::string in = dir + "/bookmark.ini", out = dir + "/written.ini";
  if (!sidefuzz::WriteFile(in, data, size)) return 0;
  BookmarkList list;
  list.load(in);
  for (int k = 0; k < list.count(); ++k) {
    const quilla::Bookmark &b = list.items()[k];
    if (b.name.size() > quilla::kBookmarkNameSize || b.path.size() > quilla::kBookmarkPathSize)
      sidefuzz::Fail("bookmark longer than its limit");
    if (b.name.empty() && !b.path.empty()) sidefuzz::Fail("bookmark with a path but no name");
    (void)list.editorLine(k);
  }
  // The same bookmarks added to a new list, written and read again.
  BookmarkList written;
  std::remove(out.c_str());
  written.load(out);
  for (const quilla::Bookmark &b : list.items()) written.add(b.path, b.name.c_str());
  if (!written.save()) return 0;
  BookmarkList again;
  again.load(out);
  if (again.count() != list.count()) sidefuzz::Fail("bookmark count differs after a round trip");
  for (int k = 0; k < list.count(); ++k) {
    const quilla::Bookmark &a = list.items()[k], &b = again.items()[k];
    // A name is added as a C string: it ends at a NUL, and none is "????".
    const std::string name = *a.name.c_str() ? a.name.c_str() : "????";
    if (b.name != name || b.path != a.path) sidefuzz::Fail("bookmark differs after a round trip");
  }
  return 0;
}

void WriteSeeds(const std::string &dir) {
  std::string valid;
  for (int k = 0; k < 12; ++k) valid += "\"Place " + std::to_string(k) + "\"*\"/home/user/pictures/" + std::to_string(k) + "\"\n";
  sidefuzz::WriteWithDamage(dir, "valid.ini", valid);
  // Every kind of line the reader accepts: empty, name only, bare, runs of
  // delimiters, CR LF, no final newline.
  sidefuzz::WriteFile(dir + "/lines.ini",
                      "\"Home\"*\"/home/me\"\n\n\"Only name\"\nbare*/no/quotes\n\"Runs\"**\"\"/x\"\"\n"
                      "\"With space\"*\"/a b/c\"\r\n\"\"*\"\"\n***\n\"a\"*\"b\"*\"c\"\n\"Last\"*\"/no/newline\"");
  sidefuzz::WriteFile(dir + "/long.ini", "\"" + std::string(300, 'n') + "\"*\"" + std::string(9000, 'p') + "\"\n" +
                                             std::string(20000, '*') + "\n");
  sidefuzz::WriteFile(dir + "/zeros.ini", std::string(2048, '\0'));
  std::string many;
  for (int k = 0; k < 2000; ++k) many += "\"b" + std::to_string(k) + "\"*\"/" + std::to_string(k) + "\"\n";
  sidefuzz::WriteFile(dir + "/many.ini", many);
}
