// Amiga IFF ILBM reader and writer.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

TEST(Iff, RoundTripIndexedAndTrueColour) {
  TempDir dir;
  const int kinds[][2] = {{TSL_INDEXED, 2}, {TSL_INDEXED, 5}, {TSL_INDEXED, 32}, {TSL_INDEXED, 256}, {TSL_RGB, 256}};
  for (const auto &k : kinds)
    for (int rle : {0, 1}) {
      SCOPED_TRACE(testing::Message() << "model " << k[0] << " colours " << k[1] << " rle " << rle);
      Pic src(MakePicture(k[0], 50, 13, 11, k[1])), back, ref;
      std::memset(src->pixels + src->bytes_per_line, 1, 40 * src->bytes_per_pixel);
      src->transparent_index = k[1] == 32 ? 3 : -1;  // travels in the BMHD
      const std::string path = dir.file("rt.iff");
      ASSERT_EQ(Save(path, src, "iff", rle), TSL_OK);
      ASSERT_EQ(Load(path, &back), TSL_OK);
      EXPECT_TRUE(SamePixels(src, back));
      EXPECT_TRUE(SameColors(src, back));
      EXPECT_EQ(back->transparent_index, src->transparent_index);
      if (HaveTool("ilbmtoppm")) {
        ASSERT_TRUE(ToolPnm("ilbmtoppm '" + path + "'", dir, &ref));
        EXPECT_TRUE(SameColors(src, ref));
      }
    }
}

TEST(Iff, ReadsNetpbmFiles) {
  if (!HaveTool("ppmtoilbm") || !HaveTool("ilbmtoppm")) GTEST_SKIP() << "netpbm missing";
  TempDir dir;
  Pic rgb(MakePicture(TSL_RGB, 37, 23, 5));
  Pic few(MakePicture(TSL_INDEXED, 37, 23, 5, 20));
  const std::string s = dir.file("src.ppm"), f = dir.file("few.ppm"), x = dir.file("x.iff");
  ASSERT_EQ(Save(s, rgb, "ppm"), TSL_OK);
  ASSERT_EQ(Save(f, few, "ppm"), TSL_OK);
  struct Case {
    std::string make;
    int model;
    bool exact;  // the same colours as the source, else as ilbmtoppm reads the file
  } cases[] = {
      {"ppmtoilbm '" + f + "'", TSL_INDEXED, true},
      {"ppmtoilbm -nocompress '" + f + "'", TSL_INDEXED, true},
      {"ppmtoilbm -24force '" + s + "'", TSL_RGB, true},
      {"ppmtoilbm -24force -nocompress '" + s + "'", TSL_RGB, true},
      {"ppmtoilbm -ham6 '" + s + "'", TSL_RGB, false},
      {"ppmtoilbm -ham8 '" + s + "'", TSL_RGB, false},
      {"ppmtoilbm -ham6 -nocompress '" + s + "'", TSL_RGB, false},
  };
  for (const Case &c : cases) {
    ASSERT_EQ(Sh(c.make + " > '" + x + "'"), 0) << c.make;
    Pic ours, ref;
    ASSERT_EQ(Load(x, &ours), TSL_OK) << c.make;
    EXPECT_EQ(ours->color_model, c.model) << c.make;
    if (c.exact) {
      EXPECT_TRUE(SameColors(c.model == TSL_RGB ? rgb : few, ours)) << c.make;
    } else {
      ASSERT_TRUE(ToolPnm("ilbmtoppm '" + x + "'", dir, &ref)) << c.make;
      // HAM is lossy and ilbmtoppm widens the 4- or 6-bit channel values a
      // little differently (we repeat the bits, as the display hardware does):
      // ours must be as close to the source as its reading, and close to it.
      EXPECT_LT(MeanAbsDiff(ref, ours), 5) << c.make;
      EXPECT_LE(MeanAbsDiff(rgb, ours), MeanAbsDiff(rgb, ref) + 0.5) << c.make;
      EXPECT_LT(MeanAbsDiff(rgb, ours), 20) << c.make;
    }
  }
}

// A hand-made ILBM: BMHD, optional CMAP and CAMG, BODY.
std::string Chunk(const char *id, const std::string &data) {
  std::string out(id, 4);
  for (int s = 24; s >= 0; s -= 8) out += static_cast<char>(data.size() >> s);
  out += data;
  if (data.size() & 1) out += '\0';
  return out;
}

std::string Ilbm(uint16_t w, uint16_t h, int planes, int masking, const std::string &cmap, uint32_t camg,
                 const std::string &body) {
  std::string bmhd = {char(w >> 8), char(w), char(h >> 8), char(h), 0, 0, 0, 0, char(planes), char(masking),
                      0, 0, 0, 0, 1, 1, char(w >> 8), char(w), char(h >> 8), char(h)};
  std::string form = "ILBM" + Chunk("BMHD", bmhd) + Chunk("ANNO", "odd");  // odd chunk: padded
  if (!cmap.empty()) form += Chunk("CMAP", cmap);
  if (camg) form += Chunk("CAMG", {char(camg >> 24), char(camg >> 16), char(camg >> 8), char(camg)});
  return Chunk("FORM", form + Chunk("BODY", body));
}

TEST(Iff, ExtraHalfBriteHamAndMaskPlane) {
  TempDir dir;
  // EHB: 6 planes, 32 colours; index 32 + i is colour i at half brightness.
  std::string cmap;
  for (int i = 0; i < 32; ++i) cmap += {char(8 * i), char(200), char(255 - 8 * i)};
  // One row of 16 pixels: pixel x has index 2x + 1 (plane bits LSB first by plane).
  std::string body;
  for (int p = 0; p < 6; ++p) {
    uint16_t bits = 0;
    for (int x = 0; x < 16; ++x)
      if (((2 * x + 1) >> p) & 1) bits |= static_cast<uint16_t>(0x8000 >> x);
    body += {char(bits >> 8), char(bits)};
  }
  WriteFile(dir.file("e.iff"), Ilbm(16, 1, 6, 0, cmap, 0x80, body));
  Pic ehb;
  ASSERT_EQ(Load(dir.file("e.iff"), &ehb), TSL_OK);
  ASSERT_EQ(ehb->color_model, TSL_INDEXED);
  for (int x = 0; x < 16; ++x) EXPECT_EQ(ehb->pixels[x], 2 * x + 1);
  EXPECT_EQ(ehb->palette[33], ehb->palette[1] / 2);
  EXPECT_EQ(ehb->palette[256 + 40], 100);

  // HAM6 with a mask plane after the six planes: start from colour 1, then
  // set red to 15, green to 8, blue to 3.
  const uint8_t codes[4] = {0x01, 0x20 | 15, 0x30 | 8, 0x10 | 3};
  std::string ham;
  for (int p = 0; p < 7; ++p) {
    uint16_t bits = 0;
    for (int x = 0; x < 4; ++x)
      if (p == 6 ? true : ((codes[x] >> p) & 1)) bits |= static_cast<uint16_t>(0x8000 >> x);
    ham += {char(bits >> 8), char(bits)};
  }
  std::string cmap16(48, '\0');
  cmap16[3] = 0x11, cmap16[4] = 0x22, cmap16[5] = 0x33;
  WriteFile(dir.file("h.iff"), Ilbm(4, 1, 6, 1, cmap16, 0x800, ham));
  Pic h;
  ASSERT_EQ(Load(dir.file("h.iff"), &h), TSL_OK);
  ASSERT_EQ(h->color_model, TSL_RGB);
  const uint8_t expect[12] = {0x11, 0x22, 0x33, 255, 0x22, 0x33, 255, 136, 0x33, 255, 136, 51};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(h->pixels[i], expect[i]) << i;
}

TEST(Iff, TruncatedAndAbsurdInput) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 40, 30, 2));
  const std::string good = dir.file("g.iff");
  for (int rle : {0, 1}) {
    ASSERT_EQ(Save(good, src, "iff", rle), TSL_OK);
    ExpectCutHandled(dir, good, ReadFile(good).size() / 2, -1, 0, 0, 1);
  }
  const std::string body(100, '\0');
  const struct {
    std::string bytes;
    int code, or_code;
  } bad[] = {
      {Ilbm(0, 5, 4, 0, "", 0, body), TSL_ERR_BAD_FILE, TSL_ERR_BAD_FILE},
      {Ilbm(5, 5, 12, 0, "", 0, body), TSL_ERR_BAD_FILE, TSL_ERR_BAD_FILE},
      {ReadFile(good).substr(0, 40), TSL_ERR_READ, TSL_ERR_READ},  // BMHD but no BODY
      // A huge picture with a tiny BODY fails before allocating.
      {Ilbm(60000, 60000, 8, 0, "", 0, body), TSL_ERR_READ, TSL_ERR_MEMORY},
  };
  for (const auto &b : bad) {
    int code;
    LoadBytes(dir, b.bytes, &code);
    EXPECT_TRUE(code == b.code || code == b.or_code) << code;
  }
}

}  // namespace
