#!/usr/bin/env python3
"""Times Debian's ffmpeg H.263 encoder (fixed quantiser, no motion search, one thread)
and decoder (to 24-bit BGR) on the frames of bench_CodecEncodeDecode, at the coded sizes
that H.263 allows, and prints our figures beside theirs as ratios (ours / theirs; above
1 means we are faster). Skips cleanly when ffmpeg is not installed.

usage: bench/compare-ffmpeg.py [BUILD_DIR]   (default build/bench, built with
       -DZNDVR_BUILD_BENCH=ON)
"""
import csv
import io
import os
import re
import shutil
import subprocess
import sys
import tempfile

QUANTISER = 8           # the benchmark's quantiser
KEY_INTERVAL = 160      # one I picture in 160, as the camera channel codes
POOL_FRAMES = 64        # frames in each dumped file
ENCODE_LOOPS = 5        # ffmpeg reads each file this many times
DECODE_LOOPS = 10

# (our benchmark's revision and size as asked, capture size fed to both coders).
# H.263 has 176x144 and 352x288 among our coded sizes; revision 0x20020219 codes its
# 704x288 frames at 352x288, from the same 352x288 capture.
CASES = [
    ("20020114", "176x144", "176x144"),
    ("20020114", "352x288", "352x288"),
    ("20020219", "704x288", "352x288"),
]
SCENES = ["still", "busy"]


def run_ffmpeg(arguments):
    result = subprocess.run(["ffmpeg", "-hide_banner", "-nostdin", "-benchmark", "-loglevel", "info"] + arguments,
                            capture_output=True, text=True, check=True)
    match = re.search(r"bench: utime=([\d.]+)s", result.stderr)
    return float(match.group(1))


def ffmpeg_figures(frames_path, size, work_dir):
    coded = os.path.join(work_dir, "out.h263")
    encode_seconds = run_ffmpeg(["-f", "rawvideo", "-pix_fmt", "uyvy422", "-s", size,
                                 "-stream_loop", str(ENCODE_LOOPS - 1), "-i", frames_path,
                                 "-threads", "1", "-c:v", "h263", "-qscale:v", str(QUANTISER),
                                 "-motion_est", "zero", "-g", str(KEY_INTERVAL), "-f", "h263", "-y", coded])
    encode_frames = POOL_FRAMES * ENCODE_LOOPS
    bytes_per_frame = os.path.getsize(coded) / encode_frames
    decode_seconds = run_ffmpeg(["-threads", "1", "-stream_loop", str(DECODE_LOOPS - 1), "-f", "h263",
                                 "-i", coded, "-f", "rawvideo", "-pix_fmt", "bgr24", "-y", os.devnull])
    return (encode_frames / encode_seconds, encode_frames * DECODE_LOOPS / decode_seconds, bytes_per_frame)


def our_figures(bench):
    names = "|".join(f"{rev}/{size}" for rev, size, _ in CASES)
    result = subprocess.run([bench, f"--benchmark_filter=^(Encode|Decode)/({names})/.*/simd",
                             "--benchmark_format=csv"], capture_output=True, text=True, check=True)
    rows = csv.DictReader(io.StringIO(result.stdout[result.stdout.index("name,"):]))
    # Names carry a "/min_time:..." suffix.
    return {row["name"].split("/min_time")[0]: (float(row["fps"]), float(row["bytes_per_frame"])) for row in rows}


def main():
    if shutil.which("ffmpeg") is None:
        print("ffmpeg is not installed: comparison skipped")
        return 0
    build = sys.argv[1] if len(sys.argv) > 1 else "build/bench"
    bench = os.path.join(build, "bench", "bench_CodecEncodeDecode")
    if not os.access(bench, os.X_OK):
        print(f"{bench} not found: configure with -DZNDVR_BUILD_BENCH=ON and build it first")
        return 1
    ours = our_figures(bench)
    print(f"{'case':<28} {'enc fps':>9} {'ffmpeg':>9} {'ratio':>6}   {'dec fps':>9} {'ffmpeg':>9} {'ratio':>6}"
          f"   {'bytes/fr':>9} {'ffmpeg':>9}")
    with tempfile.TemporaryDirectory() as work_dir:
        subprocess.run([bench, "--dump-frames", work_dir], check=True)
        for rev, size, capture in CASES:
            for scene in SCENES:
                frames = os.path.join(work_dir, f"{scene}_{capture}.uyvy")
                their_enc, their_dec, their_bytes = ffmpeg_figures(frames, capture, work_dir)
                our_enc, our_bytes = ours[f"Encode/{rev}/{size}/{scene}/simd"]
                our_dec, _ = ours[f"Decode/{rev}/{size}/{scene}/simd"]
                print(f"{rev + '/' + size + '/' + scene:<28} {our_enc:9.0f} {their_enc:9.0f} {our_enc / their_enc:6.2f}"
                      f"   {our_dec:9.0f} {their_dec:9.0f} {our_dec / their_dec:6.2f}   {our_bytes:9.0f} {their_bytes:9.0f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
