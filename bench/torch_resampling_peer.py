#!/usr/bin/python3
"""PyTorch, one thread, on the shapes of bench_resampling: the peer column.

Run with Debian's Python (it sees python3-torch):
    /usr/bin/python3 bench/torch_resampling_peer.py [--min-time SECONDS]
Prints one markdown row per operation with us/call and GB/s, the traffic
counted as bench_resampling counts it (bytes read once plus bytes written).
Times are CPU seconds of this process, as bench_resampling counts them, so
the two columns stay comparable on a shared machine (one thread: CPU time is
the time of the work).
"""
import argparse
import time

import torch
import torch.nn.functional as F

C, H, W = 64, 56, 56
BYTES = C * H * W * 4


def timed(fn, min_time):
    fn()
    calls, start = 0, time.process_time()
    while True:
        fn()
        calls += 1
        elapsed = time.process_time() - start
        if elapsed >= min_time and calls >= 3:
            return elapsed / calls


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--min-time", type=float, default=0.5)
    args = parser.parse_args()
    torch.set_num_threads(1)
    torch.manual_seed(1)
    x = torch.randn(1, C, H, W) * 3
    # The gently warped identity grid of bench_resampling (its own jitter).
    ys, xs = torch.meshgrid(torch.linspace(-1, 1, H), torch.linspace(-1, 1, W), indexing="ij")
    grid = (torch.stack([xs, ys], -1) + (torch.rand(H, W, 2) - 0.5) * 0.1).unsqueeze(0)
    mean, var = torch.randn(C), torch.rand(C) + 0.5
    weight, bias = torch.randn(C), torch.randn(C)
    rows = [
        ("upsample2x_bilinear_chw", lambda: F.interpolate(x, scale_factor=2.0, mode="bilinear", align_corners=False),
         5 * BYTES),
        ("upsample2x_nearest_chw", lambda: F.interpolate(x, scale_factor=2.0, mode="nearest"), 5 * BYTES),
        ("gridsample_bilinear", lambda: F.grid_sample(x, grid, mode="bilinear", padding_mode="zeros",
                                                      align_corners=False), 2 * BYTES + H * W * 8),
        ("gridsample_nearest", lambda: F.grid_sample(x, grid, mode="nearest", padding_mode="zeros",
                                                     align_corners=False), 2 * BYTES + H * W * 8),
        ("softmax_channels", lambda: torch.softmax(x, 1), 2 * BYTES),
        ("batchnorm_chw", lambda: F.batch_norm(x, mean, var, weight, bias, False, 0.1, 1e-5), 2 * BYTES),
        ("instancenorm_chw", lambda: F.instance_norm(x, None, None, weight, bias, True, 0.1, 1e-5), 2 * BYTES),
        ("clip", lambda: torch.clamp(x, -1.0, 2.5), 2 * BYTES),
    ]
    print("PyTorch %s, threads %d" % (torch.__version__, torch.get_num_threads()))
    print("| operation (1 x 64 x 56 x 56) | us/call | GB/s |")
    print("|---|---:|---:|")
    with torch.no_grad():
        for name, fn, traffic in rows:
            seconds = timed(fn, args.min_time)
            print("| %s | %.1f | %.2f |" % (name, seconds * 1e6, traffic / seconds * 1e-9))


if __name__ == "__main__":
    main()
