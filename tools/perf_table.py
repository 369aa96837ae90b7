#!/usr/bin/env python3
"""Writes docs/performance.md from the benchmarks' JSON output.

Usage: perf_table.py KERNELS.json END_TO_END.json NOTES.md > docs/performance.md

KERNELS.json comes from picture_kernel_bench ("ours/OP", "plain/OP",
"opencv/OP", "memory/limit"), END_TO_END.json from picture_bench
("e2e/METHOD/SIZE" labelled with the host work the call implies, and
"host/WORK/SIZE"). With repetitions, the medians are used. NOTES.md (the
analysis of the targets) is copied after the tables.
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
    ("rotate30", "RotateQVT(30), three shears", "RotateQVT(30)", False),
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


def medians(path):
    """name -> benchmark record (the median when repeated)."""
    with open(path) as f:
        data = json.load(f)
    out, single = {}, {}
    for b in data["benchmarks"]:
        name = b.get("run_name", b["name"]).split("/min_time")[0].split("/iterations")[0]
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                out[name] = b
        else:
            single.setdefault(name, b)
    for name, b in single.items():
        out.setdefault(name, b)
    return data["context"], out


def mpix(b):
    return b["items_per_second"] / 1e6 if b and "items_per_second" in b else None


def ms(b):
    if not b:
        return None
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[b.get("time_unit", "ns")]
    return b["real_time"] * scale


def fmt(v, digits=0):
    return "—" if v is None else f"{v:,.{digits}f}"


def main():
    kctx, kernels = medians(sys.argv[1])
    ectx, e2e = medians(sys.argv[2])
    notes = open(sys.argv[3]).read() if len(sys.argv) > 3 else ""

    limit = mpix(kernels.get("memory/limit"))

    def share(method, size):
        call = e2e.get(f"e2e/{method}/{size}")
        if not call:
            return None, None, None
        work = call.get("label", "")
        host = ms(e2e.get(f"host/{work}/{size}"))
        host_call = ms(e2e.get(f"host/call/{size}")) or 0.0
        total = ms(call)
        if host is None:
            return total, None, None
        host += host_call
        return total, host, max(0.0, (total - host) / total * 100.0)

    out = []
    w = out.append
    w("# Performance")
    w("")
    w("Generated by `make bench` (tools/perf_table.py from the JSON output of")
    w("`build-bench/bench/picture_kernel_bench` and `build-bench/bench/picture_bench`);")
    w("do not edit by hand. The analysis after the tables is bench/performance_notes.md.")
    w("")
    w(f"Machine: {kctx.get('num_cpus')} × {kctx.get('mhz_per_cpu')} MHz, caches "
      + ", ".join(f"L{c['level']} {c['size'] // 1024} KiB" for c in kctx.get("caches", []) if c["type"] != "Instruction")
      + f"; load average during the kernel run {', '.join(f'{x:.1f}' for x in kctx.get('load_avg', []))}, "
      + f"during the end-to-end run {', '.join(f'{x:.1f}' for x in ectx.get('load_avg', []))}. "
      + "Medians of 3 repetitions; kernel throughput is per CPU second, so other load on the machine "
      "disturbs it less than wall time, but memory bandwidth is shared all the same.")
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
    w("1.0 is as fast as it). End to end is one call of the handler through the")
    w("emulated host at 4000 × 3000 (wall time), with the host's share (reading the")
    w("picture, building the result, its call machinery) measured apart. The")
    w("plug-in's own share is its kernel time (*kernel ms*, from the kernel run)")
    w("as a part of the end-to-end time: the difference end to end − host is given")
    w("in the last table, but on a loaded machine the X server's delays make it")
    w("too noisy to judge by.")
    w("")
    w("| operation | OpenCV equivalent | plain Mpix/s | ours Mpix/s | OpenCV Mpix/s | × OpenCV | × limit | end to end ms | host ms | kernel ms | plug-in |")
    w("|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    targets = []
    for op, what, method, pointwise in OPERATIONS:
        ours = mpix(kernels.get(f"ours/{op}"))
        plain = mpix(kernels.get(f"plain/{op}"))
        cv = mpix(kernels.get(f"opencv/{op}"))
        ratio = ours / cv if ours and cv else None
        to_limit = limit / ours if ours and limit else None
        total, host, _ = share(method, LARGE)
        kernel_ms = PIXELS / ours * 1e-3 if ours else None
        plugin = kernel_ms / total * 100.0 if kernel_ms and total else None
        w(f"| {what}{' (pointwise)' if pointwise else ''} | {OPENCV.get(op, '')} | {fmt(plain)} | {fmt(ours)} | {fmt(cv)} "
          f"| {fmt(ratio, 2)} | {fmt(to_limit, 2)} | {fmt(total, 1)} | {fmt(host, 1)} | {fmt(kernel_ms, 1)} | "
          f"{'—' if plugin is None else f'{plugin:.1f} %'} |")
        targets.append((op, what, pointwise, ratio, to_limit, plugin))

    w("")
    w("## Targets")
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
        whole = mpix(kernels.get("memory/limit" if op == "limit" else f"ours/{op}"))
        cached = mpix(kernels.get(f"cache/{op}"))
        label = "memory-limit pass (3-byte to 4-byte rows)" if op == "limit" else op
        w(f"| {label} | {fmt(whole)} | {fmt(cached)} | {fmt(cached / whole if whole and cached else None, 2)} |")

    w("")
    w("## Every handler end to end")
    w("")
    w("One call through the emulated host, wall time (the host's X server works in")
    w("another process). *host* is the host's share for the work the call implies")
    w("(column *work*), measured with the same reader and writer calls and no pixel")
    w("work; at 640 × 480 the calls show the per-call overhead.")
    w("")
    w("| method | work | 4000 × 3000 ms | host ms | (e2e − host) ÷ e2e | 640 × 480 ms | host ms | (e2e − host) ÷ e2e |")
    w("|---|---|---:|---:|---:|---:|---:|---:|")
    methods = []
    for name in e2e:
        if name.startswith("e2e/") and name.endswith("/" + LARGE):
            methods.append(name[4:-len(LARGE) - 1])
    for method in methods:
        work = e2e[f"e2e/{method}/{LARGE}"].get("label", "")
        t1, h1, p1 = share(method, LARGE)
        t2, h2, p2 = share(method, SMALL)
        w(f"| {method} | {work} | {fmt(t1, 1)} | {fmt(h1, 1)} | {'—' if p1 is None else f'{p1:.0f} %'} "
          f"| {fmt(t2, 2)} | {fmt(h2, 2)} | {'—' if p2 is None else f'{p2:.0f} %'} |")
    w("")
    w("Host work alone:")
    w("")
    w("| work | 4000 × 3000 ms | 640 × 480 ms |")
    w("|---|---:|---:|")
    for name in e2e:
        if name.startswith("host/") and name.endswith("/" + LARGE):
            work = name[5:-len(LARGE) - 1]
            w(f"| {work} | {fmt(ms(e2e[name]), 2)} | {fmt(ms(e2e.get(f'host/{work}/{SMALL}')), 3)} |")
    w("")
    if notes:
        out.append(notes.rstrip())
        w("")
    sys.stdout.write("\n".join(out))


if __name__ == "__main__":
    main()
