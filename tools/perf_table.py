#!/usr/bin/env python3
"""Writes docs/performance.md from the benchmarks' JSON output.

Usage: perf_table.py KERNELS.json END_TO_END.json NOTES.md [--scaling SCALING.jsonl]
                     [--load LOAD.txt] > docs/performance.md

KERNELS.json comes from picture_kernel_bench ("ours/OP", "plain/OP",
"opencv/OP", "memory/limit"), END_TO_END.json from picture_bench
("e2e/METHOD/SIZE" labelled with the host work the call implies, and
"host/WORK/SIZE" with the counters read_s and build_s). Both are written
with every repetition (not only the aggregates): each figure is the median
of the repetitions, shown with their minimum and maximum where the spread
matters. SCALING.jsonl holds one line per `picture_bench --scaling` run;
LOAD.txt lines "WHEN LOADAVG-FIELDS" (cat /proc/loadavg) taken around the
runs. NOTES.md (the analysis of the targets) is copied after the tables.
"""
import json
import sys

# Operation -> (what it stands for, the handler measured end to end, pointwise?)
OPERATIONS = [
    ("copy", "3-byte to 4-byte rows (MemoryblockRGBtoPicture, binary strings)", "MemoryblockRGBtoPictureQVT", False),
    ("hmirror", "HMirrorQVT", "HMirrorQVT", False),
    ("vmirror", "VMirrorQVT", "VMirrorQVT", False),
    ("rotate180", "Rotate180QVT", "Rotate180QVT", False),
    ("rotate90", "Rotate90QVT", "Rotate90QVT", False),
    ("rotate270", "Rotate270QVT", "Rotate270QVT", False),
    ("rotate30", "RotateQVT(30), three shears in memory", "RotateQVT(30)", False),
    ("scale-box-half", "ScaleQVT to half size (box)", "ScaleQVT(half)", False),
    ("scale-box-double", "ScaleQVT to double size (box, no AntiAlias)", "ScaleQVT(double)", False),
    ("scale-cubic-double", "ScaleQVT to double size (cubic)", "ScaleQVT(double,AntiAlias)", False),
    ("brightness", "ChangeBrightnessAbsoluteQVT", "ChangeBrightnessAbsoluteQVT", True),
    ("brightness-linear", "ChangeBrightnessLinearQVT", "ChangeBrightnessLinearQVT", True),
    ("contrast", "ChangeContrastQVT", "ChangeContrastQVT", True),
    ("curves", "ChangeCustomQVT", "ChangeCustomQVT", True),
    ("inversion", "InvertQVT", "InvertQVT", True),
    ("remapping", "TransformColorsQVT", "TransformColorsQVT", True),
    ("autolevel", "AutoLevelQVT (histogram, then tables)", "AutoLevelQVT", False),
    ("blend", "BlendPicturesQVT", "BlendPicturesQVT", True),
    ("blend-mask", "BlendPicturesWithMaskQVT", "BlendPicturesWithMaskQVT", True),
    ("combine", "CombinePicturesQVT", "CombinePicturesQVT", True),
    ("tint", "TintPictureQVT", "TintPictureQVT", True),
    ("count-color", "CountColorQVT", "CountColorQVT", False),
    ("channel-histograms", "CountColorsQVT", "CountColorsQVT", False),
    ("matrix5x5", "PictureMatrixQVT 5 x 5", "PictureMatrixQVT.Run", False),
    ("convolution", "PictureConvolutionQVT, 5 taps of k/16", "PictureConvolutionQVT.Run", False),
    ("convolution-real", "PictureConvolutionQVT, 5 taps 0.1 0.2 0.4 0.2 0.1", None, False),
    ("matrix3d", "PictureMatrix3DQVT", "PictureMatrix3DQVT.Run", True),
    ("sepia", "PictureSepiaQVT", "PictureSepiaQVT.Run", True),
    ("lut3d", "PictureLut3DQVT", "PictureLut3DQVT.Run", False),
    ("minmax", "PictureMinMaxQVT.FindAll", "PictureMinMaxQVT.FindAll", False),
    ("block-rgb-out", "CopyRGBtoMemoryblockQVT", "CopyRGBtoMemoryblockQVT", False),
    ("block-argb-out", "CopyARGBtoMemoryblockQVT", "CopyARGBtoMemoryblockQVT", False),
    ("block-channel-out", "CopyGtoMemoryblockQVT", "CopyGtoMemoryblockQVT", False),
    ("block-argb-in", "MemoryblockARGBtoPictureQVT", "MemoryblockARGBtoPictureQVT", False),
    ("block-grey-in", "MemoryblockGrayToPictureQVT", "MemoryblockGrayToPictureQVT", False),
]

OPENCV = {
    "copy": "cvtColor RGB2BGRA", "hmirror": "flip(1)", "vmirror": "flip(0)", "rotate180": "rotate 180",
    "rotate90": "rotate 90 ccw", "rotate270": "rotate 90 cw", "rotate30": "warpAffine bilinear",
    "scale-box-half": "resize INTER_AREA", "scale-box-double": "resize INTER_NEAREST",
    "scale-cubic-double": "resize INTER_CUBIC", "brightness": "convertTo", "brightness-linear": "convertTo",
    "contrast": "convertTo", "curves": "convertTo", "inversion": "bitwise_not", "remapping": "LUT",
    "autolevel": "cvtColor + calcHist + LUT", "blend": "addWeighted", "blend-mask": "blendLinear",
    "combine": "mixChannels", "tint": "transform 3x3", "count-color": "inRange + countNonZero",
    "channel-histograms": "calcHist x 3", "matrix5x5": "filter2D 5x5", "convolution": "sepFilter2D", "convolution-real": "sepFilter2D",
    "matrix3d": "transform 3x4", "sepia": "transform 3x4", "lut3d": "(none)", "minmax": "split + minMaxLoc x 3",
    "block-rgb-out": "copyTo", "block-argb-out": "cvtColor RGB2RGBA", "block-channel-out": "extractChannel",
    "block-argb-in": "cvtColor RGBA2BGRA", "block-grey-in": "cvtColor GRAY2BGRA",
}

LARGE, SMALL = "4000x3000", "640x480"
PIXELS = 4000 * 3000
SIZES = {LARGE: PIXELS, SMALL: 640 * 480}
# Handler measured end to end -> its kernel.
KERNEL_OF = {method: op for op, _, method, _ in OPERATIONS if method}


def median(values):
    v = sorted(values)
    n = len(v)
    return None if not n else v[n // 2] if n % 2 else (v[n // 2 - 1] + v[n // 2]) / 2


class Runs:
    """The repetitions of one benchmark: median, minimum and maximum of a field."""

    def __init__(self, records):
        self.records = records
        self.label = records[0].get("label", "")

    def stat(self, get):
        values = [x for x in (get(r) for r in self.records) if x is not None]
        return (median(values), min(values), max(values)) if values else (None, None, None)


def load(path):
    """name -> Runs. Every repetition when the file has them; else the
    aggregates (median, and min/max where reported)."""
    with open(path) as f:
        data = json.load(f)
    runs, aggregates = {}, {}
    for b in data["benchmarks"]:
        if b.get("error_occurred"):
            continue
        name = b.get("run_name", b["name"]).split("/min_time")[0].split("/iterations")[0]
        if b.get("run_type") == "aggregate":
            aggregates.setdefault(name, {})[b.get("aggregate_name")] = b
        else:
            runs.setdefault(name, []).append(b)
    out = {name: Runs(records) for name, records in runs.items()}
    for name, agg in aggregates.items():
        if name not in out and "median" in agg:
            out[name] = Runs([agg["median"]])
            for extreme in ("min", "max"):
                if extreme in agg:
                    out[name].records.append(agg[extreme])
    return data["context"], out


def mpix(runs):
    """(median, min, max) Mpix/s."""
    if not runs:
        return None, None, None
    return runs.stat(lambda r: r["items_per_second"] / 1e6 if "items_per_second" in r else None)


def ms(runs):
    """(median, min, max) wall milliseconds of one iteration."""
    if not runs:
        return None, None, None
    return runs.stat(lambda r: r["real_time"] * {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[r.get("time_unit", "ns")])


def counter_ms(runs, counter):
    """Median milliseconds per iteration of a seconds counter."""
    return runs.stat(lambda r: r[counter] * 1e3 if counter in r else None)[0] if runs else None


def fmt(v, digits=0):
    return "—" if v is None else f"{v:,.{digits}f}"


def spread(m, digits=0):
    """ "median (min–max)" of a (median, min, max) triple."""
    mid, lo, hi = m
    if mid is None:
        return "—"
    if lo == hi:
        return fmt(mid, digits)
    return f"{fmt(mid, digits)} ({fmt(lo, digits)}–{fmt(hi, digits)})"


def pct(v):
    return "—" if v is None else f"{v:.0f} %"


def split(e2e, kernels, method, size):
    """One call's parts: (end to end (median, min, max), library reads ms,
    host builds + call machinery ms, kernel ms or None, library share %)."""
    call = e2e.get(f"e2e/{method}/{size}")
    if not call:
        return (None, None, None), None, None, None, None
    total = ms(call)
    work = e2e.get(f"host/{call.label}/{size}")
    machinery = ms(e2e.get(f"host/call/{size}"))[0] or 0.0
    reads = counter_ms(work, "read_s")
    builds = counter_ms(work, "build_s")
    builds = None if builds is None else builds + machinery
    op = KERNEL_OF.get(method)
    pixels = SIZES[size]
    ours = mpix(kernels.get(f"ours/{op}"))[0] if op else None
    # The kernel run is at 4000 x 3000; smaller sizes scale by the pixel count.
    kernel = pixels / ours * 1e-3 if ours else None
    share = (reads + kernel) / total[0] * 100.0 if reads is not None and kernel and total[0] else None
    return total, reads, builds, kernel, share


def read_load(path):
    out = []
    if path:
        for line in open(path):
            when, *fields = line.split()
            out.append(f"{when.replace('-', ' ')} {', '.join(fields[:3])}")
    return out


def main():
    args = sys.argv[1:]
    options = {}
    for flag in ("--scaling", "--load"):
        if flag in args:
            i = args.index(flag)
            options[flag] = args[i + 1]
            del args[i:i + 2]
    kctx, kernels = load(args[0])
    ectx, e2e = load(args[1])
    notes = open(args[2]).read() if len(args) > 2 else ""
    scaling = [json.loads(line) for line in open(options["--scaling"]) if line.strip()] if "--scaling" in options else []
    loads = read_load(options.get("--load"))
    repetitions = max((len(r.records) for r in kernels.values()), default=0)
    e2e_repetitions = max((len(r.records) for r in e2e.values()), default=0)

    limit = mpix(kernels.get("memory/limit"))[0]

    out = []
    w = out.append
    w("# Performance")
    w("")
    w("Generated by `make bench` (tools/perf_table.py from the JSON output of")
    w("`build-bench/bench/picture_kernel_bench` and `build-bench/bench/picture_bench`);")
    w("do not edit by hand. The analysis after the tables is bench/performance_notes.md.")
    w("")
    caches = ", ".join(f"L{c['level']} {c['size'] // 1024} KiB" for c in kctx.get("caches", []) if c["type"] != "Instruction")
    w(f"Machine: {kctx.get('num_cpus')} × {kctx.get('mhz_per_cpu')} MHz" + (f", caches {caches}" if caches else "")
      + ". Load average (1, 5, 15 min): "
      + ("; ".join(loads) if loads else
         f"kernel run {', '.join(f'{x:.1f}' for x in kctx.get('load_avg', []))}, "
         f"end-to-end run {', '.join(f'{x:.1f}' for x in ectx.get('load_avg', []))}")
      + f". {repetitions} repetitions of every kernel and {e2e_repetitions} of every end-to-end call: figures are"
      " medians, and *median (min–max)* shows the spread. Kernel throughput is per CPU second, so other load"
      " on the machine disturbs it less than wall time, but memory bandwidth is shared all the same.")
    w("")
    w("## Kernels alone and end to end")
    w("")
    w(f"Each kernel runs alone on a 4000 × 3000 picture (a reader-layout source, a")
    w("writer-layout destination, both allocated once); Mpix/s counts source pixels.")
    w("*plain* is the plain reference kernel, *ours* the kernel the library runs")
    w("(its fast variant where it has one); OpenCV runs the same operation single-")
    w("threaded on the same picture (3-byte destination). *× OpenCV* is ours ÷ OpenCV")
    w(f"(above 1 is faster); *× limit* is the memory-limit pass's speed ÷ ours")
    w(f"(the memory limit, one pass converting the 3-byte rows to 4-byte rows, ran at {fmt(limit)} Mpix/s;")
    w("1.0 is as fast as it); both ratios are of medians. End to end is one call")
    w("of the handler through the emulated host at 4000 × 3000 (wall time), split")
    w("into what the library does and what the host does:")
    w("- *reads*: the library's reads of its pictures (its own reader functions, timed")
    w("  alone on the same pictures by the host-work rows);")
    w("- *kernel*: the kernel's time from the kernel run (pixels ÷ ours Mpix/s);")
    w("- *builds + call*: the host building and releasing the result picture, and its")
    w("  call machinery;")
    w("- *library* is (reads + kernel) ÷ end to end: the share of the call that is the")
    w("  library's own work. What end to end leaves over after all three is the")
    w("  handler's other work (allocating and filling the result buffer) and the X")
    w("  server's delays. Reads and builds come from runs of their own, so on a")
    w("  loaded machine a share can come out above what a single call shows, even")
    w("  above 100 %; the spread of the end-to-end column says how far to trust it.")
    w("")
    w("| operation | OpenCV equivalent | plain Mpix/s | ours Mpix/s | OpenCV Mpix/s | × OpenCV | × limit | end to end ms | reads ms | kernel ms | builds + call ms | library |")
    w("|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    targets = []
    for op, what, method, pointwise in OPERATIONS:
        ours3 = mpix(kernels.get(f"ours/{op}"))
        ours = ours3[0]
        plain = mpix(kernels.get(f"plain/{op}"))[0]
        cv = mpix(kernels.get(f"opencv/{op}"))[0]
        ratio = ours / cv if ours and cv else None
        to_limit = limit / ours if ours and limit else None
        total, reads, builds, _, _ = split(e2e, kernels, method, LARGE)
        kernel_ms = PIXELS / ours * 1e-3 if ours else None
        library = (reads + kernel_ms) / total[0] * 100.0 if reads is not None and kernel_ms and total[0] else None
        w(f"| {what}{' (pointwise)' if pointwise else ''} | {OPENCV.get(op, '')} | {fmt(plain)} | {spread(ours3)} | {fmt(cv)} "
          f"| {fmt(ratio, 2)} | {fmt(to_limit, 2)} | {spread(total)} | {fmt(reads)} | {fmt(kernel_ms, 1)} | {fmt(builds)} | "
          f"{'—' if library is None else f'{library:.0f} %'} |")
        plugin = kernel_ms / total[0] * 100.0 if kernel_ms and total[0] else None
        targets.append((op, what, pointwise, ratio, to_limit, plugin))

    w("")
    w("## Targets")
    w("")
    w("The plug-in share is the kernel's time as a part of the end-to-end time.")
    w("")
    w("| operation | at least OpenCV's speed (aim 1.5×) | pointwise: within 1.5× of the memory limit | pointwise: plug-in share ≤ 20 % |")
    w("|---|---|---|---|")
    for op, what, pointwise, ratio, to_limit, plugin in targets:
        a = "n/a" if ratio is None else ("met" if ratio >= 1.0 else "missed") + f" ({ratio:.2f}×)"
        b = "—" if not pointwise or to_limit is None else ("met" if to_limit <= 1.5 else "missed") + f" ({to_limit:.2f}×)"
        c = "—" if not pointwise or plugin is None else ("met" if plugin <= 20 else "missed") + f" ({plugin:.1f} %)"
        w(f"| {what} | {a} | {b} | {c} |")

    w("")
    w("## Pointwise kernels: arithmetic or memory")
    w("")
    w("The same kernels on one row over and over (source and destination stay in")
    w("the cache), beside the whole picture. Where the two are close, the kernel's")
    w("own arithmetic is what limits it; where the cached run is much faster, memory")
    w("traffic is.")
    w("")
    w("| kernel | whole picture Mpix/s | in cache Mpix/s | cached ÷ whole |")
    w("|---|---:|---:|---:|")
    for op in ["limit"] + [o for o, _, _, p in OPERATIONS if p]:
        whole = mpix(kernels.get("memory/limit" if op == "limit" else f"ours/{op}"))[0]
        cached = mpix(kernels.get(f"cache/{op}"))[0]
        label = "memory-limit pass (3-byte to 4-byte rows)" if op == "limit" else op
        w(f"| {label} | {fmt(whole)} | {fmt(cached)} | {fmt(cached / whole if whole and cached else None, 2)} |")

    w("")
    w("## Every handler end to end")
    w("")
    w("One call through the emulated host, wall time (the host's X server works in")
    w("another process), split as above for the picture work the call implies")
    w("(column *work*); *kernel* and *library* only where the kernel run has the")
    w("method's kernel (at 640 × 480 its time scaled by the pixel count). At")
    w("640 × 480 the calls show the per-call overhead.")
    w("")
    w("| method | work | 4000 × 3000 ms | reads | kernel | builds + call | library | 640 × 480 ms | reads | builds + call | library |")
    w("|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    for name in e2e:
        if not (name.startswith("e2e/") and name.endswith("/" + LARGE)):
            continue
        method = name[4:-len(LARGE) - 1]
        t1, r1, b1, k1, s1 = split(e2e, kernels, method, LARGE)
        t2, r2, b2, _, s2 = split(e2e, kernels, method, SMALL)
        w(f"| {method} | {e2e[name].label} | {spread(t1, 1)} | {fmt(r1, 1)} | {fmt(k1, 1)} | {fmt(b1, 1)} | {pct(s1)} "
          f"| {spread(t2, 2)} | {fmt(r2, 2)} | {fmt(b2, 2)} | {pct(s2)} |")
    w("")
    w("Host work alone (medians): the library's reads and the host's builds of")
    w("each kind of call, and the whole iteration (which also fills the result")
    w("buffers, the handler's work); *call* is the call machinery alone.")
    w("")
    w("| work | 4000 × 3000 reads ms | builds ms | iteration ms | 640 × 480 reads ms | builds ms | iteration ms |")
    w("|---|---:|---:|---:|---:|---:|---:|")
    for name in e2e:
        if name.startswith("host/") and name.endswith("/" + LARGE):
            work = name[5:-len(LARGE) - 1]
            small = e2e.get(f"host/{work}/{SMALL}")
            w(f"| {work} | {fmt(counter_ms(e2e[name], 'read_s'), 1)} | {fmt(counter_ms(e2e[name], 'build_s'), 1)} "
              f"| {fmt(ms(e2e[name])[0], 2)} | {fmt(counter_ms(small, 'read_s'), 2)} | {fmt(counter_ms(small, 'build_s'), 2)} "
              f"| {fmt(ms(small)[0], 3)} |")
    w("")
    if scaling:
        write_scaling(w, scaling)
    if notes:
        out.append(notes.rstrip())
        w("")
    sys.stdout.write("\n".join(out))


def write_scaling(w, runs):
    w("## How cost grows with size")
    w("")
    w("Each method and size in a fresh process of its own (`picture_bench --scaling`,")
    w("with a private Xvfb), so that no size inherits another's peak. *ms* is the")
    w("wall time of one call, median (min–max) of the calls made; *CPU ms / MP*")
    w("the CPU time of one call in the process and in the X server together, per")
    w("megapixel of the source (CPU time is less disturbed by other load on the")
    w("machine than wall time), and *growth* that figure ÷ its value at the")
    w("smallest size (1.0: cost grows as the pixel count). *peak* is what the")
    w("calls add to the process's peak resident set over what it held before the")
    w("first call (the source picture made, nothing called), also in *pictures*")
    w("(width × height × 4 bytes of the source); *X server* the same for the")
    w("Xvfb process, where the pixmaps live. A cost growing more than 1.25× faster")
    w("than the pixel count, or a process peak above three pictures, is marked ⚠.")
    w("")
    w("| method | size | calls | wall ms | CPU ms / MP | growth | peak MiB | pictures | X server MiB | pictures |")
    w("|---|---|---:|---:|---:|---:|---:|---:|---:|---:|")
    first = {}
    for r in runs:
        mp = r["width"] * r["height"] / 1e6
        picture = r["width"] * r["height"] * 4 / 1024
        times = r["ms"]
        cpu = r.get("cpu_ms", -1)
        xcpu = r.get("x_cpu_ms", -1)
        # Per call and megapixel: CPU time where the run has it, else wall time.
        per = (cpu + max(xcpu, 0)) / len(times) / mp if cpu >= 0 else median(times) / mp if times else None
        first.setdefault(r["method"], per)
        growth = per / first[r["method"]] if per and first[r["method"]] else None
        peak = r["peak_kib"] - r["base_kib"] if r["peak_kib"] >= 0 and r["base_kib"] >= 0 else None
        xpeak = r["x_peak_kib"] - r["x_base_kib"] if r["x_peak_kib"] >= 0 and r["x_base_kib"] >= 0 else None
        warn = (growth is not None and growth > 1.25) or (peak is not None and peak / picture > 3)
        size = f"{r['width']} × {r['height']}"
        w(f"| {r['method']}{' ⚠' if warn else ''} | {size}{' (nil)' if r.get('nil') else ''} | {len(times)} "
          f"| {spread((median(times), min(times), max(times)))} | {fmt(per, 1)} | {fmt(growth, 2)} "
          f"| {fmt(None if peak is None else peak / 1024)} | {fmt(None if peak is None else peak / picture, 1)} "
          f"| {fmt(None if xpeak is None else xpeak / 1024)} | {fmt(None if xpeak is None else xpeak / picture, 1)} |")
    w("")

if __name__ == "__main__":
    main()
