// The listings of tesconv: the format table (-formats), the information
// block of a file (-info) and the usage text (-help).
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tools/tesconv/tesconv.h"

namespace quilla {

namespace {

std::string Printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string Printf(const char *format, ...) {
  char buf[1024];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  return buf;
}

}  // namespace

std::string FormatsListing() {
  std::string out = Printf("%-32s %-4s %-5s %s\n", "Name", "Read", "Write", "Extension");
  const int n = tslCount();
  for (int f = 0; f < n; ++f) {
    TslFormatInfo info;
    if (tslFormatGetInfo(f, &info) != TSL_OK) continue;
    out += Printf("%-32s %-4s %-5s %s\n", info.description ? info.description : info.name,
                  (info.flags & TSL_CAN_READ) ? "Yes" : "No", (info.flags & TSL_CAN_WRITE) ? "Yes" : "No",
                  info.extensions ? info.extensions : "");
  }
  return out;
}

bool InfoText(const std::string &path, const TslParams &params, std::string *text) {
  TslFileInfo info;
  int code = tslFileInformationEx(path.c_str(), &params, &info);
  if (code != TSL_OK) {
    *text = ErrorLine(path, code, info.message) + "\n";
    tslFileInformationFree(&info);
    return false;
  }
  std::string &o = *text;
  o = path + "\n";
  o += Printf("  Format:         %s (%s)\n", tslFormatGetDescription(info.format), tslFormatGetName(info.format));
  o += Printf("  Size:           %ux%u\n", info.width, info.height);
  o += Printf("  Bits per plane: %d\n", info.bits_per_plane);
  o += Printf("  Planes:         %d\n", info.planes);
  if (TSL_IS_TRUECOLOR(info.color_model) || info.colors >= (1L << 24)) o += "  Colors:         16 Millions\n";
  else o += Printf("  Colors:         %ld\n", info.colors);
  o += Printf("  Color model:    %s\n", tslGetLabelForColorModel(&info));
  o += Printf("  Compression:    %s\n", tslGetFullLabelForCompression(&info));
  if (info.dpi_x > 0 || info.dpi_y > 0) o += Printf("  Resolution:     %dx%d dpi\n", info.dpi_x, info.dpi_y);
  else o += "  Resolution:     unknown\n";
  if (info.orientation > 0) o += Printf("  Orientation:    %d\n", info.orientation);
  o += Printf("  Pages:          %d\n", info.pages);
  if (info.comment && *info.comment) {
    std::string comment = info.comment;
    for (char &c : comment)
      if (c == '\n' || c == '\r') c = ' ';
    o += "  Comment:        " + comment + "\n";
  }
  tslFileInformationFree(&info);
  return true;
}

std::string UsageText() {
  return
      "Usage: tesconv [options] -out FORMAT [-o DIR/ | -o TEMPLATE] FILE...\n"
      "       tesconv -info FILE...\n"
      "       tesconv -formats\n"
      "\n"
      "Conversion:\n"
      "  -out FORMAT        output format (short name, see -formats)\n"
      "  -in FORMAT         input format (default: found from the file)\n"
      "  -o DIR/            write the outputs into DIR (created when missing)\n"
      "  -o TEMPLATE        output name; the first run of # becomes the file's number\n"
      "                     (1, 2, ... or the -n number), zero padded to its length\n"
      "  -n START END STEP  sequence: each FILE is a template with #, converted for\n"
      "                     START, START+STEP, ... END (START > END: the file as named)\n"
      "  -D                 delete each original after its output was written\n"
      "                     (never when input and output are the same file)\n"
      "  -replace           overwrite existing outputs (default)\n"
      "  -skip              leave existing outputs alone\n"
      "  -rename            write NAME_1.EXT, NAME_2.EXT, ... (up to 998) instead\n"
      "  -j N               convert N files at a time (default: number of cores)\n"
      "  -v                 print a line for every file written\n"
      "  -ignore            keep what a damaged file gives instead of failing\n"
      "  -autoorient        turn pictures upright by their EXIF orientation\n"
      "  -thumb WxH         reduced load: fit into W x H while reading (never enlarges)\n"
      "\n"
      "Headerless input (raw, yuv) and Photo CD:\n"
      "  -size WxH+OFFSET   picture size and byte offset, e.g. -size 256x256+0\n"
      "  -ctype TYPE        grey, rgb, bgr, rgba, abgr, cmy or cmyk\n"
      "  -corder ORDER      inter (interleaved), seq (planes in sequence), sep (separate)\n"
      "  -npcd N            Photo CD resolution index\n"
      "  -psdpi N           PostScript, EPS and PDF rendered at N dots per inch (72)\n"
      "  -pspage WxH        ... on a page of W x H points (0x0: the document's own box)\n"
      "  -grobbpp N         HP48/49 graphic objects read as N grey planes\n"
      "  -lut10to8 FILE     Cineon and DPX samples read through a LUT file (1024 entries)\n"
      "\n"
      "Writing:\n"
      "  -q N               quality 1..100 (JPEG, WebP, JPEG 2000, HEIF, AVIF, JPEG XL)\n"
      "  -progressive       progressive JPEG\n"
      "  -interlace         interlaced PNG or GIF\n"
      "  -compress C        0..9 (PNG zlib level, 0 = none elsewhere) or a method:\n"
      "                     none, rle, lzw, packbits, deflate, jpeg, g3, g4 (TIFF)\n"
      "  -gif87a            GIF 87a header       -os2        OS/2 BMP header\n"
      "  -ascii             ASCII PBM/PGM/PPM    -optimize   optimised JPEG Huffman tables\n"
      "  -transparent N     palette index N written as transparent (PNG, GIF)\n"
      "  -hp49              HP49 header on graphic objects   -dpx10  10-bit DPX samples\n"
      "  -lut8to10 FILE     Cineon and DPX samples written through a LUT file (256 entries)\n"
      "\n"
      "Operations, applied in the order given:\n"
      "  -truecolors                      -grey [-dither] 4|8|16|32|64|128|256\n"
      "  -colors [-dither] 8|16|32|64|128|216|256\n"
      "  -binary pattern|floyd|halft45|halft90\n"
      "  [-ratio] [-rtype linear|quick|bicubic|lanczos] -resize W H   (or W% H%)\n"
      "  -crop X Y W H                    [-ratio] -canvas W H   (or W% H%)\n"
      "  -dpi [X Y]                       -xflip  -yflip  -rotate DEGREES\n"
      "  -negate  -brightness N  -contrast N  -gamma G  -balance R G B  -log\n"
      "  -solarize N  -posterize LEVELS  -normalize  -equalize\n"
      "  -swap rbg|bgr|brg|grb|gbr\n"
      "  -edetail  -efocus  -eedge N  -frestore  -edgedetect light|medium|heavy\n"
      "  -emboss  -embossmore  -average S  -soften N  -blur N  -gauss S\n"
      "  -maximum S  -minimum S  -medianb S  -medianc S  -sharpen N   (S: 3,5,..,13)\n"
      "  -noise reduce  -noise A uniform|gaussian|laplacian  -noise A poisson\n"
      "  -mosaic N  -slice  -tile N  -shear  -oil N  -swirl N  -spread N  -lens N\n"
      "  -waves LENGTH PHASE AMOUNT       -deinter odd|even dup|int\n"
      "\n"
      "Information:\n"
      "  -info FILE...      format, size, colours, compression, resolution, pages, comment\n"
      "  -formats           the formats with their read and write abilities\n"
      "  -help, -version\n"
      "\n"
      "The exit status is 0 when every file was converted, 1 when any failed,\n"
      "2 for a mistake on the command line.\n";
}

}  // namespace quilla
