/*
 * tessel.h - the tessel image-format library.
 *
 * A C interface: the picture record, the load/save parameter record, file and
 * format information, and the tsl* calls.  Pixels and palettes of a picture are
 * allocated and released only by tslAllock/tslFree.
 *
 * The library is reentrant: no call keeps global mutable state besides the
 * format table (built once by tslInitLibrary) and the default pixel limit, so
 * distinct pictures may be loaded and saved from several threads at once.
 */
#ifndef TESSEL_H
#define TESSEL_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TSL_VERSION_TEXT "3.87"

/* ---- Colour models ------------------------------------------------------ */
/* 1, 2 and 4 are the palette-free bilevel, grey and indexed models; every
 * true-colour layout owns one bit inside 0x3F0.  The byte order of the name is
 * the order of the bytes in memory (TSL_RGB: red first). */
#define TSL_BINARY   1      /* 1 bit per pixel, MSB first, see below */
#define TSL_GREY     2      /* 1 byte per pixel, 0 = black .. 255 = white      */
#define TSL_INDEXED  4      /* 1 byte per pixel, index into the palette        */
#define TSL_RGB      0x010  /* 3 bytes */
#define TSL_BGR      0x020  /* 3 bytes */
#define TSL_RGBA     0x040  /* 4 bytes, alpha last (255 = opaque) */
#define TSL_BGRA     0x080  /* 4 bytes */
#define TSL_ARGB     0x100  /* 4 bytes */
#define TSL_ABGR     0x200  /* 4 bytes */
#define TSL_TRUECOLOR_MASK 0x3F0
#define TSL_IS_TRUECOLOR(model) (((model) & TSL_TRUECOLOR_MASK) != 0)
/* Bilevel pictures: a set bit is a white pixel, a clear bit a black one (the
 * bit is the intensity; PBM, XBM and CCITT readers invert their 1 = black
 * bits).  TSL_KIND_TRUECOLOR is the capability-list kind "any true colour". */
#define TSL_KIND_TRUECOLOR 1008

/* ---- Result codes ------------------------------------------------------- */
#define TSL_OK             0
#define TSL_ERR_MEMORY     1   /* "Not enough memory" (also: over the pixel limit) */
#define TSL_ERR_FORMAT     2   /* format not recognised / cannot be read */
#define TSL_ERR_OPEN       3   /* cannot open the file */
#define TSL_ERR_READ       4   /* read error, file ends early */
#define TSL_ERR_CREATE     5   /* cannot create the file */
#define TSL_ERR_WRITE      6   /* write error */
#define TSL_ERR_INTERNAL   7
#define TSL_ERR_CANT_SAVE  8   /* the format cannot store this picture */
#define TSL_ERR_BAD_FILE   9   /* bad picture file; TslFileInfo.message says why */
#define TSL_ERR_CORRUPT   10   /* corrupt picture data */
#define TSL_ERR_JPEG      11   /* the JPEG codec failed */
#define TSL_STOPPED       15   /* the progress callback asked to stop */

/* ---- Picture record ----------------------------------------------------- */
typedef struct TslPicture {
    uint32_t width;
    uint32_t height;
    uint32_t bytes_per_line;
    int16_t  color_model;
    uint16_t bytes_per_pixel;
    int16_t  alloc_param;        /* 0: rows packed; n > 0: rows aligned to n bytes (n <= 64) */
    uint16_t attr_word;          /* carried along, never interpreted by the library */
    uint32_t attr_pair[2];       /* resolution: horizontal, vertical dots per inch (0 = unknown);
                                    set by readers, written by writers when TslParams.dpi_x is 0 */
    int16_t  colors;             /* palette entries in use / grey levels */
    int16_t  transparent_index;  /* -1 = none */
    unsigned char *palette;      /* 768 bytes: 256 red, 256 green, 256 blue; NULL for true colour */
    unsigned char *pixels;
} TslPicture;

/* ---- Progress ----------------------------------------------------------- */
/* Called during load and save.  what == 0: value is the percentage done;
 * what == 1: no new percentage, only a chance to service events.
 * A non-zero return asks a load to stop (it then ends with TSL_STOPPED). */
typedef int (*TslProgressFunc)(int what, int value, void *user_data);

/* ---- Flags of TslParams.flags ------------------------------------------- */
#define TSL_FLAG_APP          0x001  /* set by the program from a start-up switch: verbose diagnostics on stderr */
#define TSL_FLAG_SAVE         0x004  /* set by every save: replace the target atomically */
#define TSL_FLAG_UNATTENDED   0x0C0  /* batch work: never wait for anything interactive */
#define TSL_FLAG_KEEP_DAMAGED 0x400  /* return what could be decoded of a damaged file, with success */
#define TSL_FLAG_BY_EXTENSION 0x800  /* detect the format by extension only (no content sniffing) */

/* Channel order / type of headerless input and output. */
#define TSL_ORDER_RGB 0
#define TSL_ORDER_BGR 1
#define TSL_ORDER_RBG 2
#define TSL_ORDER_GRB 3
#define TSL_ORDER_GBR 4
#define TSL_ORDER_BRG 5
#define TSL_ORDER_RGBA 6   /* 4 bytes: red, green, blue, alpha (read as TSL_RGBA) */
#define TSL_ORDER_ABGR 7   /* 4 bytes: alpha, blue, green, red (read as TSL_RGBA) */
#define TSL_ORDER_CMY  8   /* 3 bytes: cyan, magenta, yellow (255 - red, ...) */
#define TSL_ORDER_CMYK 9   /* 4 bytes: cyan, magenta, yellow, black */
#define TSL_CHANNEL_INTERLEAVED 0   /* RGBRGB... */
#define TSL_CHANNEL_PLANAR      1   /* RR..GG..BB.. */
#define TSL_CHANNEL_GREY        2   /* one byte per pixel */

/* ---- Load and save parameters ------------------------------------------- */
typedef struct TslParams {
    int      format;             /* format index, -1 = find out */
    int      page;               /* page or frame to load, from 0 */
    TslProgressFunc progress;
    void    *progress_data;
    unsigned flags;              /* TSL_FLAG_* */

    /* headerless input (raw, yuv): geometry and byte offset of the data */
    int      width;
    int      height;
    long     offset;
    int      channel_order;      /* TSL_ORDER_* */
    int      channel_type;       /* TSL_CHANNEL_* */

    int      pcd_base;           /* Photo CD resolution index */
    int      grob_bpp;           /* bits per pixel of GROB pictures */
    int      ps_dpi;             /* PostScript resolution */
    int      ps_page_width;      /* PostScript page size in points */
    int      ps_page_height;

    /* writing */
    int      quality;            /* JPEG/WebP/JPEG 2000 quality 1..100 */
    int      compression;        /* format specific, see TSL_TIFF_* and the README */
    int      progressive;        /* JPEG progressive, PNG/GIF interlace */
    int      os2_header;         /* BMP: OS/2 header */
    int      gif87a_header;      /* GIF: write 87a */
    int      hp49_header;        /* GROB: HP49 header */
    int      optimize_huffman;   /* JPEG: optimised Huffman tables */
    int      ppm_ascii;          /* PBM/PGM/PPM: ASCII variant */
    int      dpx_10bits;         /* DPX: 10-bit samples */
    int      transparent_index;  /* -1 = none; else the palette index written as transparent */
    int      dpi_x, dpi_y;       /* resolution to write, 0 = from nothing */
    const char *comment;         /* comment to write, NULL = none */

    /* look-up table (three planes of lut_size 16-bit values), NULL = none */
    uint16_t *lut[3];
    int      lut_size;

    /* reduced loading: the picture is made to fit target_width x target_height
     * (aspect kept, never enlarged); 0 = full size */
    int      target_width;
    int      target_height;

    uint64_t max_pixels;         /* 0 = the library's default limit */
} TslParams;

/* TIFF compression values of TslParams.compression */
#define TSL_TIFF_NONE     0
#define TSL_TIFF_LZW      1
#define TSL_TIFF_PACKBITS 2
#define TSL_TIFF_JPEG     3
#define TSL_TIFF_CCITT_G3 4   /* bilevel only */
#define TSL_TIFF_CCITT_G4 5   /* bilevel only */
#define TSL_TIFF_DEFLATE  6

/* ---- File information ----------------------------------------------------- */
/* Compression methods reported by tslFileInformation */
#define TSL_COMP_NONE         0
#define TSL_COMP_RLE          1
#define TSL_COMP_LZW          2
#define TSL_COMP_PACKBITS     3
#define TSL_COMP_DEFLATE      4
#define TSL_COMP_JPEG         5
#define TSL_COMP_JPEG_PROG    6
#define TSL_COMP_CCITT_RLE    7
#define TSL_COMP_CCITT_G3     8
#define TSL_COMP_CCITT_G4     9
#define TSL_COMP_WEBP_LOSSY  10
#define TSL_COMP_WEBP_LOSSLESS 11
#define TSL_COMP_JPEG2000    12
#define TSL_COMP_BYTERUN1    13
#define TSL_COMP_HUFFMAN     14
#define TSL_COMP_OTHER       15
#define TSL_COMP_HEVC        16   /* HEIF */
#define TSL_COMP_AV1         17   /* AVIF */
#define TSL_COMP_JPEGXL      18

typedef struct TslFileInfo {
    int      format;             /* format index */
    uint32_t width, height;
    int      bits_per_plane;     /* bits per sample */
    int      planes;             /* samples per pixel */
    long     colors;             /* palette size / grey levels; 1<<24 for true colour */
    int      color_model;        /* the TSL_* model tslLoad produces */
    int      compression;        /* TSL_COMP_* */
    int      dpi_x, dpi_y;       /* resolution in dots per inch, 0 = unknown */
    int      origin;             /* 0 = top left, 1 = bottom left */
    int      orientation;        /* EXIF orientation 1..8, 0 = none */
    int      pages;              /* pages or frames, at least 1 */
    int     *delays;             /* per frame delay in ms (animations), NULL = none */
    int      loop_count;         /* animations: 0 = forever */
    int      has_alpha;
    char    *comment;            /* NUL-terminated, NULL = none */
    char     message[256];       /* the library's own text for TSL_ERR_BAD_FILE */
} TslFileInfo;

/* ---- Format information ------------------------------------------------- */
#define TSL_CAN_READ        0x01
#define TSL_CAN_WRITE       0x02
#define TSL_MULTI_READ      0x04  /* several pages or frames are read */
#define TSL_MULTI_WRITE     0x08  /* tslFileCreate/AddPicture/Close work */

typedef struct TslCapability {
    int kind;        /* 1, 2, 4 or 1008; -1 ends the list */
    int max_colors;  /* -1 = no limit */
    int width;       /* fixed width the format demands, -1 = any */
    int height;
} TslCapability;

#define TSL_MAX_CAPS 8

typedef struct TslFormatInfo {
    char        name[11];        /* short name, at most 10 characters */
    const char *description;
    const char *suffix;          /* default extension, without the dot */
    const char *extensions;      /* "jpg;jpeg;jpe" */
    int         flags;           /* TSL_CAN_* / TSL_MULTI_* */
    TslCapability caps[TSL_MAX_CAPS];   /* ended by kind -1 */
} TslFormatInfo;

typedef struct TslFile TslFile;   /* a multi-page file being written */

/* ---- Calls -------------------------------------------------------------- */
void tslInitLibrary(void);
void tslExitLibrary(void);
void tslVersion(char *buffer);               /* writes "3.87" (at least 8 bytes) */

int  tslCount(void);
int  tslFormatGetIndex(const char *name);    /* negative when unknown */
const char *tslFormatGetName(int format);
const char *tslFormatGetDescription(int format);
const char *tslFormatGetDefaultSuffix(int format);
int  tslFormatIsWritable(int format);
int  tslFormatIsSupported(int format);       /* readable */
int  tslFormatIsMultiPage(int format);       /* several pages can be written */
int  tslFormatGetInfo(int format, TslFormatInfo *info);

int  tslHasGoodExtension(const char *path);
void tslSetCorrectExtension(char *path, int format);  /* path buffer of 4096 bytes */
int  tslFormatFromExtension(const char *path);        /* negative when unknown */

void tslDefaultParams(TslParams *params);

int  tslFileInformation(const char *path, int format, int page, TslFileInfo *info);
/* The same for params->format (-1 = find out) and params->page; headerless
 * files (raw, yuv) are described with the geometry, offset and channel
 * layout of the parameters, as tslLoad would read them. */
int  tslFileInformationEx(const char *path, const TslParams *params, TslFileInfo *info);
void tslFileInformationFree(TslFileInfo *info);
const char *tslGetLabelForColorModel(const TslFileInfo *info);
const char *tslGetFullLabelForCompression(const TslFileInfo *info);

int  tslLoad(const char *path, TslPicture *picture, const TslParams *params);
int  tslSave(const char *path, const TslPicture *picture, const TslParams *params);

int  tslFileCreate(TslFile **file, const char *path, int format, int pages, const TslParams *params);
int  tslFileAddPicture(TslFile *file, const TslPicture *picture, const TslParams *params);
int  tslFileClose(TslFile *file);

int  tslAllock(TslPicture *picture, int color_model, int alloc_param, uint32_t width, uint32_t height);
void tslFree(TslPicture *picture);
/* Copy: same model, allocation parameter and size, pixels, palette (all 768
 * bytes) and attributes.  Rotated copy: width and height exchanged, pixels
 * left to the caller.  Both return 0 or TSL_ERR_MEMORY (dest left empty). */
int  tslCopyPicture(TslPicture *dest, const TslPicture *src);
int  tslCopyPictureRotated(TslPicture *dest, const TslPicture *src);
int  tslBytesPerPixel(int color_model);

/* Default limit of width x height for any picture the library allocates. */
void     tslSetMaxPixels(uint64_t max_pixels);
uint64_t tslGetMaxPixels(void);

uint16_t tslFileReadWordLsbf(FILE *stream);

/* Decoded picture to 8-bit RGB or RGBA rows, for writers and displays:
 * any colour model in, row y out (width*3 or width*4 bytes). */
void tslGetRowRGB(const TslPicture *picture, uint32_t y, unsigned char *out);
void tslGetRowRGBA(const TslPicture *picture, uint32_t y, unsigned char *out);

/* The text of a result code for a path, as shown to users ("%s" = path). */
void tslErrorText(char *buffer, size_t size, const char *path, int code, const char *message);

#ifdef __cplusplus
}
#endif
#endif /* TESSEL_H */
