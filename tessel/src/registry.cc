// The format table in the library's order.
#include "format.h"

namespace tessel {
extern const FormatDef kAvifFormat, kHeifFormat, kJxlFormat, kPsFormat;
extern const FormatDef kBmpFormat, kDcxFormat, kGifFormat, kIffFormat, kJp2Format, kJpegFormat, kPbmFormat,
    kPcxFormat, kPgmFormat, kPngFormat, kPpmFormat, kRawFormat, kSgiFormat, kTgaFormat, kTiffFormat, kWebpFormat,
    kXbmFormat, kXpmFormat, kXwdFormat, kYuvFormat;
extern const FormatDef kCinFormat, kDpxFormat, kGrobFormat, kIcoFormat, kPcdFormat, kPsdFormat, kRasFormat, kSoftFormat;

namespace {
const FormatDef *const kTable[] = {
    &kAvifFormat, &kBmpFormat, &kDcxFormat, &kGifFormat, &kHeifFormat, &kIffFormat, &kJp2Format, &kJpegFormat,
    &kJxlFormat, &kPbmFormat,
    &kPcxFormat, &kPgmFormat, &kPngFormat, &kPpmFormat, &kPsFormat, &kRawFormat, &kSgiFormat, &kTgaFormat,
    &kTiffFormat, &kWebpFormat, &kXbmFormat, &kXpmFormat, &kXwdFormat, &kYuvFormat,
    &kCinFormat, &kDpxFormat, &kGrobFormat, &kIcoFormat, &kPcdFormat, &kPsdFormat, &kRasFormat, &kSoftFormat,
};
}  // namespace

int formatCount() { return static_cast<int>(sizeof kTable / sizeof kTable[0]); }
const FormatDef &formatAt(int index) { return *kTable[index]; }

}  // namespace tessel
