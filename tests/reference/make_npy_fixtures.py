#!/usr/bin/python3
"""Writes the NPY files of the NPY reader's tests with NumPy itself, so the
reader is checked against what np.save really produces: arrays it must read
(float32, C order, format versions 1.0 and 2.0) and arrays it must refuse.

    /usr/bin/python3 tests/reference/make_npy_fixtures.py
"""
import os

import numpy as np

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "npy")


def write(name, array, version=None):
    path = os.path.join(OUT, name)
    with open(path, "wb") as f:
        if version is None:
            np.save(f, array)
        else:
            np.lib.format.write_array(f, array, version=version)


def main():
    os.makedirs(OUT, exist_ok=True)
    a = np.arange(6, dtype=np.float32).reshape(2, 3) - 2.5
    write("f32_2x3.npy", a)
    write("f32_2x3_v2.npy", a, version=(2, 0))
    write("f32_vector.npy", np.array([1.5, -0.25, 3.0e38, 1e-45], dtype=np.float32))
    write("f32_1x3x2x2.npy", np.arange(12, dtype=np.float32).reshape(1, 3, 2, 2))
    # Refused: other types, orders, versions and shapes.
    write("f64_2x3.npy", a.astype(np.float64))
    write("f32_big_endian.npy", a.astype(">f4"))
    write("u8_2x3.npy", a.astype(np.uint8))
    write("f32_fortran.npy", np.asfortranarray(np.arange(6, dtype=np.float32).reshape(2, 3)))
    write("f32_v3.npy", a, version=(3, 0))
    write("f32_scalar.npy", np.array(1.0, dtype=np.float32))
    write("f32_empty.npy", np.zeros((0, 3), dtype=np.float32))
    print("wrote", sorted(os.listdir(OUT)))


if __name__ == "__main__":
    main()
