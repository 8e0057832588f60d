#!/usr/bin/python3
"""Writes tests/data/cv/opencv_reference.bin: small inputs and what OpenCV makes
of them, for the image-processing tests. Run with Debian's Python
(python3-opencv, python3-numpy): /usr/bin/python3 tests/reference/make_cv_reference.py

File format, little-endian: "TRNCVREF" then records until the end, each
  u8 name length, name (ASCII), u8 dtype (0 uint8, 1 float32), u8 rank,
  u32 dims[rank], the elements in C order.
"""
import os
import struct
import sys

import cv2
import numpy as np

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "cv", "opencv_reference.bin")


def main():
    cv2.setNumThreads(1)
    rng = np.random.default_rng(7)
    rec = {}

    rgb = rng.integers(0, 256, (13, 17, 3), dtype=np.uint8)
    rgba = rng.integers(0, 256, (13, 17, 4), dtype=np.uint8)
    rec["rgb"] = rgb
    rec["rgba"] = rgba
    rec["gray_rgb"] = cv2.cvtColor(rgb, cv2.COLOR_RGB2GRAY)
    rec["gray_bgr"] = cv2.cvtColor(rgb, cv2.COLOR_BGR2GRAY)
    rec["gray_rgba"] = cv2.cvtColor(rgba, cv2.COLOR_RGBA2GRAY)
    rec["rgba2rgb"] = cv2.cvtColor(rgba, cv2.COLOR_RGBA2RGB)
    rec["rgba2bgr"] = cv2.cvtColor(rgba, cv2.COLOR_RGBA2BGR)
    rec["rgb2bgr"] = cv2.cvtColor(rgb, cv2.COLOR_RGB2BGR)

    # 4:2:0 frames whose chroma is the 2x2 mean of a full-range YCrCb image.
    # OpenCV's own 4:2:0 decoders use the limited-range matrix, so the
    # reference is its full-range YCrCb -> RGB on the chroma replicated 2x2.
    h, w = 14, 18
    src = rng.integers(0, 256, (h, w, 3), dtype=np.uint8)
    ycc = cv2.cvtColor(src, cv2.COLOR_RGB2YCrCb)
    y = ycc[:, :, 0]
    cr = cv2.resize(ycc[:, :, 1], (w // 2, h // 2), interpolation=cv2.INTER_AREA)
    cb = cv2.resize(ycc[:, :, 2], (w // 2, h // 2), interpolation=cv2.INTER_AREA)
    uv = np.stack([cb, cr], axis=2).reshape(h // 2, w)
    vu = np.stack([cr, cb], axis=2).reshape(h // 2, w)
    rec["nv12"] = np.concatenate([y, uv], axis=0)
    rec["nv21"] = np.concatenate([y, vu], axis=0)
    rec["iyuv"] = np.concatenate([y.reshape(-1), cb.reshape(-1), cr.reshape(-1)]).reshape(h * 3 // 2, w)
    full = np.stack([y, np.repeat(np.repeat(cr, 2, 0), 2, 1), np.repeat(np.repeat(cb, 2, 0), 2, 1)], axis=2)
    rec["yuv_ref"] = cv2.cvtColor(full, cv2.COLOR_YCrCb2RGB)

    rec["rot90"] = cv2.rotate(rgb, cv2.ROTATE_90_CLOCKWISE)
    rec["rot180"] = cv2.rotate(rgb, cv2.ROTATE_180)
    rec["rot270"] = cv2.rotate(rgb, cv2.ROTATE_90_COUNTERCLOCKWISE)
    rec["flip_h"] = cv2.flip(rgb, 1)
    rec["flip_v"] = cv2.flip(rgb, 0)
    rec["crop"] = np.ascontiguousarray(rgb[3:3 + 7, 2:2 + 9])  # x 2, y 3, width 9, height 7

    gray = rng.integers(0, 256, (16, 20, 1), dtype=np.uint8)
    rec["gray16x20"] = gray
    rec["nearest_down"] = cv2.resize(gray, (10, 8), interpolation=cv2.INTER_NEAREST)[:, :, None]
    rec["nearest_up"] = cv2.resize(gray, (40, 32), interpolation=cv2.INTER_NEAREST)[:, :, None]

    even4 = rng.integers(0, 256, (16, 20, 4), dtype=np.uint8)
    rec["even4"] = even4
    for c in (1, 2, 3, 4):
        up = cv2.resize(rgba[:, :, :c], (34, 26), interpolation=cv2.INTER_LINEAR)
        down = cv2.resize(np.ascontiguousarray(even4[:, :, :c]), (10, 8), interpolation=cv2.INTER_LINEAR)
        rec["bilinear_up_c%d" % c] = up.reshape(26, 34, c)
        rec["bilinear_down_c%d" % c] = down.reshape(8, 10, c)

    # Destination-to-source matrix: a turn of 0.4 rad, a scale of 0.8, a shift.
    # A smooth source: with noise, OpenCV's 1/32-pixel points alone move
    # values by up to 255/64.
    a, s = 0.4, 0.8
    m = np.array([[s * np.cos(a), -s * np.sin(a), 4.3], [s * np.sin(a), s * np.cos(a), -2.6]], dtype=np.float32)
    yy, xx = np.mgrid[0:13, 0:17]
    warp_src = np.stack([6 * xx + 4 * yy + 20 * c + 40 for c in range(3)], axis=2).astype(np.uint8)
    rec["warp_src"] = warp_src
    rec["warp_m"] = m.reshape(6)
    rec["warp_border"] = cv2.warpAffine(warp_src, m.astype(np.float64), (20, 15),
                                        flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP,
                                        borderMode=cv2.BORDER_CONSTANT, borderValue=(37, 37, 37))
    # 1 where all four neighbours of the source point are inside the image,
    # with a margin of 1/16 pixel.
    dy, dx = np.mgrid[0:15, 0:20].astype(np.float64)
    md = m.astype(np.float64)
    sx = md[0, 0] * dx + md[0, 1] * dy + md[0, 2]
    sy = md[1, 0] * dx + md[1, 1] * dy + md[1, 2]
    margin = 1.0 / 16
    rec["warp_inner"] = ((sx >= margin) & (sx <= 16 - 1 - margin) & (sy >= margin) & (sy <= 13 - 1 - margin)).astype(np.uint8)

    os.makedirs(os.path.dirname(OUT), exist_ok=True)
    with open(OUT, "wb") as f:
        f.write(b"TRNCVREF")
        for name, arr in rec.items():
            arr = np.ascontiguousarray(arr)
            dtype = {np.dtype(np.uint8): 0, np.dtype(np.float32): 1}[arr.dtype]
            f.write(struct.pack("<B", len(name)) + name.encode())
            f.write(struct.pack("<BB", dtype, arr.ndim))
            f.write(struct.pack("<%dI" % arr.ndim, *arr.shape))
            f.write(arr.astype(arr.dtype.newbyteorder("<")).tobytes())
    print("wrote %s (%d bytes, %d arrays)" % (OUT, os.path.getsize(OUT), len(rec)), file=sys.stderr)


if __name__ == "__main__":
    main()
