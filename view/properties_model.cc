// The lines of the file properties dialog.
#include "view/properties_model.h"

#include <cstdio>

namespace quilla {

std::string SizeText(double bytes) {
  char buf[64];
  if (bytes < 1024)
    std::snprintf(buf, sizeof buf, "%ld bytes", static_cast<long>(bytes));
  else if (bytes < 1048576)
    std::snprintf(buf, sizeof buf, "%.2lf Kb", bytes / 1024);
  else if (bytes < 1073741824)
    std::snprintf(buf, sizeof buf, "%.2lf Mb", bytes / 1048576);
  else
    std::snprintf(buf, sizeof buf, "%.2lf Gb", bytes / 1073741824);
  return buf;
}

const char *OrientationText(int orientation) {
  static const char *const kTexts[8] = {
      "Top-left (normal)",      "Top-right (mirrored)",      "Bottom-right (rotated 180)",
      "Bottom-left (flipped)",  "Left-top (transposed)",     "Right-top (rotate 90 clockwise)",
      "Right-bottom (transversed)", "Left-bottom (rotate 90 counter-clockwise)"};
  return orientation >= 1 && orientation <= 8 ? kTexts[orientation - 1] : "";
}

std::vector<PropertyLine> PropertyLines(const std::string &path, long long size, const TslFileInfo &info) {
  std::vector<PropertyLine> lines;
  char buf[128];
  lines.push_back({"File", "File:", path});
  lines.push_back({"Size", "Size:", SizeText(static_cast<double>(size))});
  const char *name = tslFormatGetName(info.format);
  const char *desc = tslFormatGetDescription(info.format);
  std::string format = name ? name : "Unknown";
  if (desc && *desc) format += std::string(" (") + desc + ")";
  lines.push_back({"Format", "Format:", format});
  std::snprintf(buf, sizeof buf, "%u x %u, %d bit(s) x %d plane(s)", info.width, info.height, info.bits_per_plane,
                info.planes);
  lines.push_back({"Dimensions", "Dimensions:", buf});
  const char *model = tslGetLabelForColorModel(&info);
  std::string colors = model ? model : "";
  if (info.colors > 0 && info.colors < (1L << 24)) colors += ", " + std::to_string(info.colors) + " colors";
  lines.push_back({"Colors", "Colors:", colors});
  const char *comp = tslGetFullLabelForCompression(&info);
  lines.push_back({"Compression", "Compression:", comp ? comp : ""});
  if (info.dpi_x > 0 || info.dpi_y > 0)
    std::snprintf(buf, sizeof buf, "%d x %d dpi", info.dpi_x, info.dpi_y);
  else
    std::snprintf(buf, sizeof buf, "Unknown");
  lines.push_back({"Resolution", "Resolution:", buf});
  if (info.pages > 1) lines.push_back({"Pages", "Pages:", std::to_string(info.pages)});
  if (const char *o = OrientationText(info.orientation); *o)
    lines.push_back({"Orientation", "Orientation:", std::to_string(info.orientation) + " - " + o});
  if (info.comment && *info.comment) lines.push_back({"Comment", "Comment:", info.comment});
  return lines;
}

}  // namespace quilla
