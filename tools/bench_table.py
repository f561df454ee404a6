#!/usr/bin/python3
"""Runs the benchmarks of every family and prints one summary table.

Each row holds lumr's figure, the figure of a peer or baseline measured in
the same run, and the ratio lumr / peer.  Every figure is a rate (higher is
faster), so a ratio above 1 means lumr is faster.  Peers: the ray-tracing
kernel library (Embree, loaded at run time by the ray benchmarks) for builds
and rays, scipy.ndimage for the volume families (through bench/*_scipy.py and
bench/python_bench.py), ITK for the affine warp when bench/warp_itk was
built.  Where no outside library does the same job, the row compares with an
internal baseline measured in the same process (vector body against plain
loop, two threads against one, memcpy/memset of the same bytes).

    /usr/bin/python3 tools/bench_table.py [build-dir] [--raw] [--all] [--min-time S]
        [--only family,...] [--json table.json]

--raw also passes every benchmark's own output through (Google Benchmark's
console tables, the scripts' prints) before the table; --all runs every
benchmark of each binary, not only the table's (much longer).  Standard
library only.
"""
import argparse
import json
import os
import re
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PYTHON = "/usr/bin/python3"

FAMILIES = ["rays", "stream_math", "kdtree", "intersect", "sh", "filter", "resize", "remap",
            "warp", "python"]

# ---- What runs --------------------------------------------------------------------
#
# Google Benchmark binaries: the rows below name the benchmarks they need;
# each binary runs once with a filter for exactly those names (the ones it
# has: a binary of another layout simply yields fewer rows).

MESH = {0: "bunny 3.7k tris", 1: "sphere 100k tris", 2: "sphere 1M tris"}
FRAME_MESH = {0: "bunny", 1: "sphere 1M tris"}


def gb_rows():
    """(family, case, unit, binary, lumr name, baseline name, baseline label, clock)."""
    rows = []
    add = rows.append
    # rays: generation and normals, against their plain loops and memset.
    add(("rays", "eye rays 1024x1024: vector body", "Mrays/s", "rays", "BM_CastEyeVector/1024",
         "BM_CastEyePlain/1024", "plain loop", "cpu"))
    add(("rays", "eye rays 1024x1024: vector body", "Mrays/s", "rays", "BM_CastEyeVector/1024",
         "BM_Memset3Planes/1024", "memset of the 3 planes", "cpu"))
    add(("rays", "triangle normals 1M: 2 threads", "Mtri/s", "rays",
         "BM_TriangleNormal/2/real_time", "BM_TriangleNormal/1/real_time", "1 thread", "wall"))
    add(("rays", "smooth normals 4096 hits: vector body", "Mhits/s", "rays",
         "BM_SmoothNormalVector", "BM_SmoothNormalPlain", "plain loop", "cpu"))
    # masked stream arithmetic: in cache against the plain loop, out of
    # cache against memcpy of the same bytes.
    for fn in ("Mul_C1P3IM", "AddMulMul_AC1P3IM", "Dot_P3C1M", "DotChangeNorm_IM",
               "DistAttenuationSO_M"):
        add(("stream_math", f"{fn} 4Ki lanes: vector body", "GB/s", "stream_math",
             f"{fn}/lanes:4096/plain:0", f"{fn}/lanes:4096/plain:1", "plain loop", "cpu"))
    for fn in ("Mul_C1P3IM", "Dot_P3C1M"):
        add(("stream_math", f"{fn} 16Mi lanes", "GB/s", "stream_math",
             f"{fn}/lanes:16777216/plain:0", "Memcpy32PerLane/lanes:16777216",
             "memcpy, same bytes", "cpu"))
    # KD-tree builds against the peer's BVH build, both on one thread.
    for m in (0, 1, 2):
        add(("kdtree", f"SAH build q0.5, {MESH[m]}, 1 thread", "Mtri/s", "kdtree",
             f"BM_SahBuild/{m}/5/1/real_time", f"BM_PeerBVHBuild/{m}/2/real_time",
             "Embree BVH build, high quality, 1 thread", "cpu"))
    add(("kdtree", f"SAH build q0.5, {MESH[1]}: 2 threads", "Mtri/s", "kdtree",
         "BM_SahBuild/1/5/2/real_time", "BM_SahBuild/1/5/1/real_time", "1 thread", "wall"))
    add(("kdtree", "nearest hits, bunny, SAH tree", "Mrays/s", "kdtree",
         "BM_IntersectMO/0/1/real_time", "BM_IntersectMO/0/0/real_time", "one-leaf list tree",
         "cpu"))
    # Intersection: frames over SAH trees beside the peer (when the binary
    # has them), then packet against plain bodies.
    frame = "BM_Frame/{m}/{q}/{i}/{t}/process_time/real_time"
    for m in (0, 1):
        for q, qname in ((0, "primary"), (1, "shadow")):
            for i, iname in ((3, "8-ray calls"), (2, "1-ray calls")):
                add(("intersect", f"{qname} rays, {FRAME_MESH[m]}: packet, 1 thread", "Mrays/s",
                     "intersect", frame.format(m=m, q=q, i=1, t=1),
                     frame.format(m=m, q=q, i=i, t=1), f"Embree {iname}, 1 thread", "cpu"))
        add(("intersect", f"4 hits per ray, {FRAME_MESH[m]}: packet, 1 thread", "Mrays/s",
             "intersect", frame.format(m=m, q=2, i=1, t=1), frame.format(m=m, q=2, i=2, t=1),
             "Embree 1-ray calls, successive", "cpu"))
        add(("intersect", f"primary rays, {FRAME_MESH[m]}: packet body", "Mrays/s", "intersect",
             frame.format(m=m, q=0, i=1, t=1), frame.format(m=m, q=0, i=0, t=1), "plain body",
             "cpu"))
        add(("intersect", f"primary rays, {FRAME_MESH[m]}: packet, 2 threads", "Mrays/s",
             "intersect", frame.format(m=m, q=0, i=1, t=2), frame.format(m=m, q=0, i=1, t=1),
             "1 thread", "wall"))
    for coherent, cname in ((1, "camera"), (0, "random")):
        add(("intersect", f"{cname} rays, list tree of 320: packet body", "Mrays/s", "intersect",
             f"BM_IntersectMO/{coherent}/1", f"BM_IntersectMO/{coherent}/0", "plain body", "cpu"))
    for fn, what in (("BM_IntersectEyeSO", "eye rays"), ("BM_IntersectAnySO", "shadow rays"),
                     ("BM_IntersectMultipleSO", "4 hits per ray")):
        add(("intersect", f"{what}, list tree of 320: packet body", "Mrays/s", "intersect",
             f"{fn}/1", f"{fn}/0", "plain body", "cpu"))
    # Spherical harmonics: against a scalar double Legendre recurrence.
    for body, label in (("Closed", "closed forms"), ("Recurrence", "recurrence")):
        for band in (7, 15):
            add(("sh", f"basis to band {band}, {label}", "Mdir/s", "sh",
                 f"BM_Basis/{body}/{band}", f"BM_BaselineDouble/{band}",
                 "scalar double recurrence", "cpu"))
        add(("sh", f"basis to band 15, {label}: packed body", "Mdir/s", "sh",
             f"BM_Basis/{body}/15", f"BM_Basis/{body}Plain/15", "plain body", "cpu"))
    # Volumes: paths, threads and memory baselines (the scipy rows come from
    # the scripts).
    for k in (3, 5):
        add(("filter", f"16s 256^3 {k}x{k}x{k}: vector path", "Mvoxel/s", "filter",
             f"BM_Filter/kw:{k}/kh:{k}/kd:{k}/scalar:0", f"BM_Filter/kw:{k}/kh:{k}/kd:{k}/scalar:1",
             "scalar path", "cpu"))
    # x2.0: a 512^3 output, well out of cache, so that memcpy is the bound.
    rz = "32f_C1V/code2/x2.0/t{t}/min_time:0.500/real_time"
    add(("resize", "32f 256^3 x2.0 linear: 2 threads", "Mvoxel/s", "resize", rz.format(t=2),
         rz.format(t=1), "1 thread", "wall"))
    add(("resize", "32f 256^3 x2.0 linear, 1 thread", "Mvoxel/s", "resize", rz.format(t=1),
         "copy32f/x2.0/min_time:0.500/real_time", "memcpy of the output", "cpu"))
    for fam in ("remap", "warp"):
        add((fam, "256^3 -> 256x256x32 32f linear: 2 threads", "Mvoxel/s", fam,
             f"{fam}_32f/linear/threads:2/real_time", f"{fam}_32f/linear/threads:1/real_time",
             "1 thread", "wall"))
    return rows


# Peer scripts: (family, source id, argv after the interpreter, case prefix).
# Sizes and repetitions are cut where the full script would take minutes.
def script_runs(build):
    lib = os.path.join(build, "liblumre9-6.1.so")
    b = os.path.join(ROOT, "bench")
    return [
        ("filter", "filter_scipy", [os.path.join(b, "filter_scipy.py"), lib, "--n", "256",
                                    "--repeat", "2", "--kernel", "3x3x3", "--kernel", "5x5x5"]),
        ("resize", "resize_scipy", [os.path.join(b, "resize_scipy.py"), build, "--quick",
                                    "--factor", "0.5", "--factor", "1.3,0.7,1.0",
                                    "--code", "2", "--code", "5"]),
        ("remap", "remap_scipy", [os.path.join(b, "remap_scipy.py"), build, "2", "--no-threads",
                                  "--type", "8u", "--type", "32f", "--code", "2", "--code", "5"]),
        ("warp", "warp_scipy", [os.path.join(b, "warp_scipy.py"), build, "2", "--no-threads",
                                "--type", "8u", "--type", "32f", "--code", "2", "--code", "5"]),
        ("python", "python_bench", [os.path.join(b, "python_bench.py"), "--n", "128",
                                    "--repeat", "2", "--min-time", "0.1"]),
    ]


SCRIPT_CASE_PREFIX = {"filter_scipy": "", "resize_scipy": "", "remap_scipy": "256^3 -> 256x256x32 ",
                      "warp_scipy": "256^3 -> 256x256x32 ", "warp_itk": "256^3 -> 256x256x32 "}

# ---- Running ----------------------------------------------------------------------


class Runner:
    def __init__(self, build, raw, every, tmp):
        self.build, self.raw, self.every, self.tmp = build, raw, every, tmp
        self.failed = []  # (source, reason)
        self.loads = []
        self.seconds = {}

    def note_load(self):
        try:
            with open("/proc/loadavg") as f:
                self.loads.append(float(f.read().split()[0]))
        except OSError:
            pass

    def run(self, source, argv, env=None):
        """Runs argv; its output goes to the terminal with --raw, else to a log."""
        self.note_load()
        print(f"bench_table: {source} ...", file=sys.stderr, flush=True)
        if self.raw:
            print(f"== {source}", flush=True)
        log = os.path.join(self.tmp, source + ".log")
        t0 = time.monotonic()
        with open(log, "w") as out:
            try:
                done = subprocess.run(argv, stdout=None if self.raw else out, stderr=subprocess.STDOUT
                                      if not self.raw else None, env=env, cwd=ROOT)
                code = done.returncode
            except OSError as e:
                code = str(e)
        self.seconds[source] = time.monotonic() - t0
        if code != 0:
            tail = ""
            if not self.raw:
                with open(log) as f:
                    lines = f.read().strip().splitlines()
                tail = (": " + lines[-1][:120]) if lines else ""
            self.failed.append((source, f"exit {code}{tail}"))
            return False
        return True

    def gbench(self, binary, names, min_time):
        """Records by name of the wanted benchmarks the binary has."""
        exe = os.path.join(self.build, "bench", "bench_" + binary)
        if not os.access(exe, os.X_OK):
            self.failed.append(("bench_" + binary, "not built"))
            return {}
        listed = subprocess.run([exe, "--benchmark_list_tests"], capture_output=True, text=True)
        have = set(listed.stdout.split())
        wanted = sorted(set(names) & have)
        if not wanted:
            return {}
        pattern = "^(" + "|".join(re.sub(r"([.^$*+?(){}\[\]|\\])", r"\\\1", n) for n in wanted) + ")$"
        out = os.path.join(self.tmp, binary + ".json")
        select = [] if self.every else ["--benchmark_filter=" + pattern]
        self.run("bench_" + binary, [exe] + select + [f"--benchmark_min_time={min_time}",
                                                      "--benchmark_out=" + out,
                                                      "--benchmark_out_format=json"])
        try:
            with open(out) as f:
                data = json.load(f)
        except (OSError, ValueError):
            return {}
        self.loads.append(float(data.get("context", {}).get("load_avg", [0.0])[0]))
        return {r["name"]: r for r in data.get("benchmarks", [])
                if r.get("run_type", "iteration") == "iteration" and not r.get("error_occurred")}

    def script(self, source, argv, env=None):
        out = os.path.join(self.tmp, source + ".json")
        self.run(source, argv + ["--json", out], env)
        try:
            with open(out) as f:
                return json.load(f)
        except (OSError, ValueError):
            return []


# ---- Figures ----------------------------------------------------------------------

TIME_UNIT = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
# Rate counters a benchmark may report, and the scale to the table's unit.
RATE_KEYS = (("items_per_second", 1e-6), ("bytes_per_second", 1e-9), ("Mvoxel/s", 1.0),
             ("Mrays/s", 1.0))


def gb_figure(rec, clock, work=None):
    """Rate of one Google Benchmark record over CPU time or wall time.

    The work per iteration comes from the rate the benchmark reports (divided
    by the time it reports it over: wall time for names ending in real_time,
    else CPU time), or is given (builds: triangles per iteration)."""
    if rec is None:
        return None
    unit = TIME_UNIT[rec.get("time_unit", "ns")]
    used = rec["real_time"] if "/real_time" in rec["name"] else rec["cpu_time"]
    if work is None:
        for key, scale in RATE_KEYS:
            if key in rec:
                work = rec[key] * used * unit * scale
                break
        else:
            return None
    t = (rec["cpu_time"] if clock == "cpu" else rec["real_time"]) * unit
    return work / t if t > 0 else None


def build_table(args, runner):
    rows = []  # dicts: family, case, unit, lumr, peer_label, peer, clock, mark
    want = set(args.only.split(",")) if args.only else set(FAMILIES)
    specs = [r for r in gb_rows() if r[0] in want]
    by_binary = {}
    for s in specs:
        by_binary.setdefault(s[3], set()).update((s[4], s[5]))
    results = {}
    for binary in sorted(by_binary, key=lambda b: FAMILIES.index(b)):
        results[binary] = runner.gbench(binary, by_binary[binary], args.min_time)

    script_results = {}
    env = dict(os.environ, LUMR_LIBRARY_DIR=args.build, PYTHONDONTWRITEBYTECODE="1")
    have_py = os.access(PYTHON, os.X_OK)
    for family, source, argv in script_runs(args.build):
        if family not in want:
            continue
        if have_py:
            script_results[source] = runner.script(source, [PYTHON] + argv, env)
        else:
            runner.failed.append((source, PYTHON + " missing"))
            script_results[source] = []
    itk = os.path.join(args.build, "bench", "warp_itk")
    if "warp" in want and os.access(itk, os.X_OK):
        script_results["warp_itk"] = runner.script("warp_itk", [itk])

    def emit(family, case, unit, lumr, label, peer, clock, mark=""):
        rows.append(dict(family=family, case=case, unit=unit, lumr=lumr, peer_label=label,
                         peer=peer, clock=clock, mark=mark))

    # Google Benchmark rows, in family order, scripts' rows after their family's.
    def script_rows(family):
        for fam, source, _ in script_runs(args.build) + [("warp", "warp_itk", None)]:
            if fam != family or source not in script_results:
                continue
            recs = script_results[source]
            for r in recs:
                threads = r.get("threads", 1)
                if source == "python_bench" and r["unit"] == "kcall/s":
                    text = "per call: " + r["case"]
                elif source == "python_bench":
                    text = "via Python, 1 thread: " + r["case"]
                else:
                    text = SCRIPT_CASE_PREFIX[source] + r["case"] + f", {threads} thread" + (
                        "s" if threads > 1 else "")
                emit(family, text, r["unit"], r["lumr"], r["peer_name"], r.get("peer"),
                     r.get("clock", "cpu"))
            if not recs:
                emit(family, f"({source} gave no rows)", "", None, "scipy.ndimage" if "scipy" in
                     source else source, None, "", "a")

    for family in FAMILIES:
        if family not in want:
            continue
        for fam, case, unit, binary, mine, base, label, clock in specs:
            if fam != family:
                continue
            recs = results.get(binary, {})
            if mine not in recs:
                continue  # not in this binary's layout, or failed
            work = None
            if binary == "kdtree" and "Build" in mine:
                # Builds: triangles per iteration, from the library's own record
                # of the same mesh (the peer's records carry no counter).
                m = mine.split("/")[1]
                src = recs.get(f"BM_SahBuild/{m}/5/1/real_time", recs[mine])
                work = src.get("tris", 0) * 1e-6
            lumr = gb_figure(recs[mine], clock, work)
            peer = gb_figure(recs.get(base), clock, work)
            mark = "" if peer is not None else "a"
            emit(family, case, unit, lumr, label, peer, clock, mark)
        script_rows(family)
    return rows


# ---- Printing ---------------------------------------------------------------------


def fmt(x):
    if x is None:
        return "-"
    if x >= 100:
        return f"{x:.0f}"
    if x >= 10:
        return f"{x:.1f}"
    return f"{x:.2f}" if x >= 0.1 else f"{x:.3f}"


def print_table(rows, runner, args):
    head = ("family", "case", "unit", "lumr", "peer / baseline (same run)", "peer figure",
            "ratio")
    body = []
    for r in rows:
        ratio = (r["lumr"] / r["peer"]) if r["lumr"] and r["peer"] else None
        clock = {"cpu": "", "wall": " (wall)"}.get(r["clock"], "")
        label = r["peer_label"] + clock + (f" [{r['mark']}]" if r["mark"] else "")
        body.append((r["family"], r["case"], r["unit"], fmt(r["lumr"]), label, fmt(r["peer"]),
                     "-" if ratio is None else f"{ratio:.2f}"))
    widths = [max(len(h), *(len(b[i]) for b in body)) if body else len(h)
              for i, h in enumerate(head)]
    right = {3, 5, 6}

    def line(cells):
        return " | ".join(c.rjust(w) if i in right else c.ljust(w)
                          for i, (c, w) in enumerate(zip(cells, widths)))

    print()
    print("lumr benchmark summary: ratio = lumr / peer of rates, above 1 means lumr is faster")
    print(line(head))
    print("-+-".join("-" * w for w in widths))
    last = None
    for b in body:
        if last is not None and b[0] != last:
            print("-+-".join("-" * w for w in widths))
        print(line(b))
        last = b[0]
    loads = [x for x in runner.loads if x > 0]
    total = sum(runner.seconds.values())
    print()
    print("Notes:")
    print(" - Rows on one thread are timed by CPU time (the benchmark thread's, or the process's "
          "for the\n   frames and the scripts), so that other work on a shared machine counts "
          "less.  Rows marked\n   (wall) are timed by the wall clock: two threads against one "
          "(which needs two free cores\n   to mean much) and the Python per-call rows.")
    if loads:
        print(f" - Load average during the run: {min(loads):.1f} to {max(loads):.1f} on "
              f"{os.cpu_count()} cores.")
    print(f" - Google Benchmark rows: --benchmark_min_time={args.min_time} s (resize rows keep "
          "their own 0.5 s),\n   one repetition; scripts: best of 2 (scipy's cubic and "
          "quick cases: 1). Cut for time:\n   remap/warp against scipy on the 8u and 32f linear "
          "and B-spline cases only, resize\n   against scipy on x0.5 and x(1.3, 0.7, 1.0) only "
          "(not x2.0), the Python throughput on\n   128^3 volumes, the filter against scipy on "
          "two kernels.")
    print(" - scipy's cubic is order 3 without its prefilter: the same approximating B-spline "
          "kernel\n   as lumr's bspline code.  scipy runs single-threaded.")
    print(" - No outside library does the job of the ray generation, normals, masked stream "
          "arithmetic\n   or spherical-harmonic rows: those compare with internal baselines "
          "measured in the same\n   process.")
    if any(r["mark"] == "a" for r in rows):
        print(" - [a] '-': the peer or baseline did not run here (not installed or not loadable;"
              " Embree\n   comes with tools/install-deps.sh bench, ITK is optional: "
              "libinsighttoolkit5-dev).")
    if not any(r["family"] == "intersect" and "Embree" in r["peer_label"] for r in rows) and \
            any(r["family"] == "intersect" for r in rows):
        print(" - The intersection benchmark of this build has no peer frames; its rows "
              "compare bodies only.")
    if "warp_itk" not in runner.seconds and any(r["family"] == "warp" for r in rows):
        print(" - ITK rows missing: bench/warp_itk is built only where CMake finds ITK "
              "(libinsighttoolkit5-dev).")
    for source, why in runner.failed:
        print(f" - {source} failed: {why}")
    print(f" - Benchmarks ran for {total / 60:.1f} min.")


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("build", nargs="?", default="build")
    ap.add_argument("--raw", action="store_true", help="also show every benchmark's own output")
    ap.add_argument("--all", action="store_true",
                    help="run every benchmark of each binary, not only the table's")
    ap.add_argument("--min-time", type=float, default=0.5,
                    help="--benchmark_min_time for the Google Benchmark binaries (seconds)")
    ap.add_argument("--only", help="comma-separated families: " + ",".join(FAMILIES))
    ap.add_argument("--json", help="also write the table's rows to this file")
    args = ap.parse_args()
    args.build = os.path.abspath(args.build)
    if args.only and not set(args.only.split(",")) <= set(FAMILIES):
        ap.error("--only takes " + ",".join(FAMILIES))
    with tempfile.TemporaryDirectory(prefix="lumr-bench-") as tmp:
        runner = Runner(args.build, args.raw, args.all, tmp)
        rows = build_table(args, runner)
        runner.note_load()
    print_table(rows, runner, args)
    if args.json:
        with open(args.json, "w") as out:
            json.dump(rows, out, indent=1)
    return 1 if runner.failed else 0


if __name__ == "__main__":
    sys.exit(main())
