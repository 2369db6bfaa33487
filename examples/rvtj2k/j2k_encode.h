// rvtj2k's encoder: `rvtj2k encode IN OUT.j2k|OUT.jp2 [options]`.
#ifndef RVTJ2K_ENCODE_H_
#define RVTJ2K_ENCODE_H_

namespace rvtj2k {

// argv holds the arguments after "encode": IN, OUT, then options.  Returns
// the process exit code; a failure prints one line to stderr and writes
// no file.
int EncodeMain(int argc, char** argv);

}  // namespace rvtj2k

#endif  // RVTJ2K_ENCODE_H_
