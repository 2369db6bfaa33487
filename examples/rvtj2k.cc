// rvtj2k: an example JPEG 2000 codec built on the library's exports for all
// entropy and pixel work (tier-1 code-block coding, the wavelets, the
// component transforms).  The decoder (j2k_decode.cc) reads any tile grid,
// precincts, progression, layers, 5/3 or 9/7, 1..16 bits; a .jp2 file is
// read from its jp2c box.  Anything it cannot read ends with a one-line
// reason and a non-zero exit.
//
//   rvtj2k decode IN.j2k|IN.jp2 OUT.pgm|OUT.ppm|OUT.png [-layers K] [-reduce R] [-threads N]
//   rvtj2k encode IN OUT.j2k|OUT.jp2 [options]
#include <cstdio>
#include <string>

#include "j2k_decode.h"
#include "j2k_encode.h"

int main(int argc, char** argv) {
  if (argc >= 2 && std::string(argv[1]) == "encode") return rvtj2k::EncodeMain(argc - 2, argv + 2);
  if (argc < 4 || std::string(argv[1]) != "decode") {
    std::fprintf(stderr,
                 "usage: rvtj2k decode IN.j2k|IN.jp2 OUT.pgm|OUT.ppm|OUT.png [-layers K] [-reduce R] [-threads N],"
                 " or encode IN OUT.j2k|OUT.jp2 [options]\n");
    return 2;
  }
  return rvtj2k::DecodeMain(argc - 2, argv + 2);
}
