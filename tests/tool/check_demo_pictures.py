"""Checks the pictures that `previewbokeh demo` writes with its default size.

Usage: check_demo_pictures.py DIR
Every file decodes, has the size the demo documents, the blurred output
differs from the input where the scene is far and equals it on the focused
subject, and the ratio-4 output differs from the full-resolution one.
"""
import sys
from pathlib import Path

from PIL import Image, ImageChops

W, H = 1920, 1080
EXPECTED = {
    "input.png": (W, H),
    "disparity.png": (W // 4, H // 4),
    "weights.png": (W, H),
    "output.png": (W, H),
    "output-r4.png": (W, H),
}


def main(out_dir: Path) -> int:
    failures = []
    images = {}
    for name, size in EXPECTED.items():
        path = out_dir / name
        if not path.is_file():
            failures.append(f"{path}: missing")
            continue
        img = Image.open(path)
        img.load()
        if img.size != size:
            failures.append(f"{path}: size {img.size}, expected {size}")
        images[name] = img.convert("RGB")
    comparison = out_dir / "comparison.png"
    if not comparison.is_file():
        failures.append(f"{comparison}: missing")
    else:
        cw, ch = Image.open(comparison).size
        if ch < H // 4 or cw < 4 * (cw // 4) or cw <= ch:
            failures.append(f"{comparison}: {cw}x{ch} is not a side-by-side strip")
    if {"input.png", "output.png", "output-r4.png"} <= images.keys():
        inp, out, r4 = images["input.png"], images["output.png"], images["output-r4.png"]
        # The top-left corner is the far wall: blurred, so it must change.
        corner = (0, 0, W // 8, H // 8)
        if ImageChops.difference(inp.crop(corner), out.crop(corner)).getbbox() is None:
            failures.append("output.png: the far background is identical to the input")
        # The focused subject (centred at 62 % of the width, half the height)
        # stays sharp.
        cx, cy = W * 62 // 100, H // 2
        subject = (cx - 40, cy - 40, cx + 40, cy + 40)
        if ImageChops.difference(inp.crop(subject), out.crop(subject)).getbbox() is not None:
            failures.append("output.png: the focused subject is not sharp")
        if ImageChops.difference(out, r4).getbbox() is None:
            failures.append("output-r4.png: identical to output.png")
    for f in failures:
        print("FAILED:", f)
    if not failures:
        print(f"{len(EXPECTED) + 1} demo pictures checked in {out_dir}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
