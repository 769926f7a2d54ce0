#!/usr/bin/env python3
"""Our codec against Debian's ffmpeg H.263 on whole sequences, as a user gets both: each
coder runs as a whole process with the forms and settings it picks by itself, and is
timed by the processor seconds (user and system) of that process. Two scenes of 352x288
from bench_CodecSequence: "busy", a test card in motion with sensor noise, and "camera",
a still street with one walking figure and light noise. Each runs 2000 frames (a pool of
500 read four times), quantiser 8, a key frame every 160; ffmpeg codes one thread with
zero motion vectors, and decodes to 24-bit BGR as ours does. Every run is repeated and
the best taken, since the machine may be shared. Prints frames a second and the ratios
(ours / theirs; above 1 means we are faster). Skips cleanly when ffmpeg is missing.

usage: bench/compare-ffmpeg.py [BUILD_DIR] [REPEATS]   (default build/release and 3;
       the build needs -DZNDVR_BUILD_BENCH=ON and the target bench_CodecSequence)
"""
import os
import shutil
import subprocess
import sys
import tempfile

WIDTH, HEIGHT = 352, 288
POOL_FRAMES = 500
LOOPS = 4
FRAMES = POOL_FRAMES * LOOPS
QUANTISER = 8
KEY_INTERVAL = 160
SCENES = ["busy", "camera"]


def cpu_seconds(command):
    """Processor seconds of one run of a whole process; the run must succeed."""
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(process.pid, 0)
    errors = process.stderr.read().decode(errors="replace")
    process.stderr.close()
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"{' '.join(command)} failed: {errors.strip()}")
    return usage.ru_utime + usage.ru_stime


def best_seconds(command, repeats):
    return min(cpu_seconds(command) for _ in range(repeats))


def ffmpeg(*arguments):
    return ["ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error", *arguments]


def measure(bench, scene, work_dir, repeats):
    frames = os.path.join(work_dir, f"{scene}.uyvy")
    ours = os.path.join(work_dir, f"{scene}.rec")
    theirs = os.path.join(work_dir, f"{scene}.h263")
    subprocess.run([bench, "scene", scene, str(POOL_FRAMES), frames], check=True)
    our_encode = best_seconds([bench, "encode", frames, str(WIDTH), str(HEIGHT), str(LOOPS), ours], repeats)
    their_encode = best_seconds(ffmpeg("-f", "rawvideo", "-pix_fmt", "uyvy422", "-s", f"{WIDTH}x{HEIGHT}",
                                       "-stream_loop", str(LOOPS - 1), "-i", frames, "-threads", "1",
                                       "-filter_threads", "1", "-c:v", "h263", "-q:v", str(QUANTISER),
                                       "-motion_est", "zero", "-g", str(KEY_INTERVAL), "-f", "h263", "-y", theirs),
                                repeats)
    our_decode = best_seconds([bench, "decode", ours, "1", os.devnull], repeats)
    their_decode = best_seconds(ffmpeg("-threads", "1", "-filter_threads", "1", "-f", "h263", "-i", theirs,
                                       "-f", "rawvideo", "-pix_fmt", "bgr24", "-y", os.devnull), repeats)
    our_bytes = (os.path.getsize(ours) - 4 * FRAMES) / FRAMES
    their_bytes = os.path.getsize(theirs) / FRAMES
    return (FRAMES / our_encode, FRAMES / their_encode, FRAMES / our_decode, FRAMES / their_decode,
            our_bytes, their_bytes)


def main():
    if shutil.which("ffmpeg") is None:
        print("ffmpeg is not installed: comparison skipped")
        return 0
    build = sys.argv[1] if len(sys.argv) > 1 else "build/release"
    repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    bench = os.path.join(build, "bench", "bench_CodecSequence")
    if not os.access(bench, os.X_OK):
        print(f"{bench} not found: configure with -DZNDVR_BUILD_BENCH=ON and build bench_CodecSequence")
        return 1
    print(f"{FRAMES} frames of {WIDTH}x{HEIGHT}, Q {QUANTISER}, key frame every {KEY_INTERVAL}, "
          f"best of {repeats}, processor seconds of whole processes")
    print(f"{'scene':<8} {'encoder':>9} {'ffmpeg':>9} {'ratio':>6}   {'decoder':>9} {'ffmpeg':>9} {'ratio':>6}"
          f"   {'bytes/frame':>11} {'ffmpeg':>9}")
    with tempfile.TemporaryDirectory() as work_dir:
        for scene in SCENES:
            our_enc, their_enc, our_dec, their_dec, our_bytes, their_bytes = measure(bench, scene, work_dir, repeats)
            print(f"{scene:<8} {our_enc:9.0f} {their_enc:9.0f} {our_enc / their_enc:6.2f}"
                  f"   {our_dec:9.0f} {their_dec:9.0f} {our_dec / their_dec:6.2f}"
                  f"   {our_bytes:11.0f} {their_bytes:9.0f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
