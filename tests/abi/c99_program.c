/* A C99 user of the library: the header compiles under -std=c99
 * -pedantic-errors, and a level shift round trip runs through the ABI. */
#include <rvtjp.h>
#include <rvtcore.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  const LibraryVersion* v = rvtjGetLibVersion();
  uint8_t px[6] = {0, 1, 127, 128, 200, 255};
  int16_t mid[6];
  uint8_t back[6];
  ImageSize roi = {3, 2};
  if (!v || v->major != 7 || strcmp(v->Version, "7.1.0 (r36264)") != 0) return 1;
  if (rvtiSub128_JPEG_8u16s_C1R(px, 3, mid, 6, roi) != rvtStatusOk) return 2;
  if (rvtiAdd128_JPEG_16s8u_C1R(mid, 6, back, 3, roi) != rvtStatusOk) return 3;
  if (memcmp(px, back, sizeof px) != 0 || mid[0] != -128) return 4;
  printf("%s %s, %d threads\n", v->Name, v->Version, (int)ownGetNumThreads());
  return 0;
}
