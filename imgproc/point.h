// Point operations: each channel value is mapped through a 256-entry table
// (one table, or one per channel) built here and applied by ApplyLut or
// ApplyLut3.  All take (source, destination or none, rectangle or none,
// values) and return an OpStatus.
#ifndef QUILLA_IMGPROC_POINT_H
#define QUILLA_IMGPROC_POINT_H

#include <cstdint>

#include "imgproc/op.h"

namespace quilla {

int Negative(TslPicture *src, TslPicture *dst, const OpRect *rect);
int Brightness(TslPicture *src, TslPicture *dst, const OpRect *rect, int b);
int Contrast(TslPicture *src, TslPicture *dst, const OpRect *rect, int c);
int ChangeGamma(TslPicture *src, TslPicture *dst, const OpRect *rect, double g);
int LogarithmicLut(TslPicture *src, TslPicture *dst, const OpRect *rect);
int Solarize(TslPicture *src, TslPicture *dst, const OpRect *rect, int t);
int Posterize(TslPicture *src, TslPicture *dst, const OpRect *rect, int n);
int ColorBalance(TslPicture *src, TslPicture *dst, const OpRect *rect, int dr, int dg, int db);
int Normalize(TslPicture *src, TslPicture *dst, const OpRect *rect);
int Equalize(TslPicture *src, TslPicture *dst, const OpRect *rect);

// The tables themselves.
void BrightnessTable(int b, uint8_t t[256]);
void ContrastTable(int c, uint8_t t[256]);
void GammaTable(double g, uint8_t t[256]);
void LogarithmTable(uint8_t t[256]);
void SolarizeTable(int t, uint8_t table[256]);
void PosterizeTable(int n, uint8_t t[256]);

// Histograms of the pixel bytes of the whole picture, one per channel (the
// first three bytes of a 4-byte pixel, else every byte); returns the channel
// count.
int ChannelHistograms(const TslPicture *pic, uint64_t hist[4][256]);

}  // namespace quilla

#endif
