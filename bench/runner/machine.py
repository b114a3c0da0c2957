"""Describes the measured version and the machine."""
import os
import platform
import subprocess


def output(command, folder=None):
    try:
        done = subprocess.run(command, cwd=folder, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
    except OSError:
        return "unknown"
    return done.stdout.strip()


def first_field(path, name):
    with open(path, encoding="utf-8") as file:
        for line in file:
            if line.startswith(name):
                return line.split(":", 1)[1].strip()
    return "unknown"


def packages():
    names = ["libcurl4", "libavformat59", "gstreamer1.0-plugins-good", "nginx-light", "g++"]
    lines = output(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *names]).splitlines()
    return [line for line in lines if not line.startswith("dpkg-query")]


def describe(root):
    changed = output(["git", "status", "--porcelain", "--", "api", "util", "webs", "bench",
                      ":(exclude)bench/RESULTS.md", ":(exclude)bench/plots",
                      ":(exclude)bench/measurements.json"], root)
    return {
        "commit": output(["git", "rev-parse", "--short=12", "HEAD"], root)
                  + (" with changes" if changed else ""),
        "processor": first_field("/proc/cpuinfo", "model name"),
        "processors": os.cpu_count(),
        "memory": first_field("/proc/meminfo", "MemTotal"),
        "kernel": platform.release(),
        "load": " ".join(f"{load:.2f}" for load in os.getloadavg()),
        "packages": packages(),
    }
