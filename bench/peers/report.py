#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Records and reports the end-to-end benchmark runs.

  report.py record --out RUN.json --set S --task T --program P --order N
                   [--time TIME.txt --exit CODE --timeout SECONDS] [--status TEXT]
                   [--quality Q.json] [--note TEXT]...
      one run: wall time, exit status and peak RSS from a `/usr/bin/time -v` output, its status
      (ok, failed, timeout, or TEXT such as "not built yet"), quality figures and notes.
  report.py meta --out META.json
      the machine and the peers' versions.
  report.py render --runs DIR --meta META.json --out latest.md
      one table per data set and task from every RUN.json under DIR.
"""
import argparse
import datetime
import glob
import json
import os
import platform
import re
import subprocess
import sys

OURS = "Astrivelle"

TASKS = [
    ("calibrate", "1. Master frames + calibrate"),
    ("register", "2. Register"),
    ("stack", "3. Stack with rejection"),
    ("pipeline", "4. Full pipeline (masters, calibrate, register, stack)"),
    ("detect", "5. Star detection"),
]

QUALITY = ["noise", "fwhm", "snrGain", "cornerError", "completeness", "positionError"]

COLUMNS = ["program", "wall s", "peak RSS MB", "ratio (ours/peer)"] + QUALITY + ["notes"]


# --- /usr/bin/time -v --------------------------------------------------------------------------

def parse_elapsed(text):
    """Seconds from GNU time's "h:mm:ss" or "m:ss.ss"."""
    parts = text.strip().split(":")
    if not 2 <= len(parts) <= 3:
        raise ValueError(f"not an elapsed time: {text!r}")
    seconds = 0.0
    for p in parts:
        seconds = seconds * 60 + float(p)
    return seconds


def parse_time_v(text):
    """{"wall_s", "max_rss_kb", "exit_status"} from the output of `/usr/bin/time -v`; a figure
    absent from the text is None."""
    result = {"wall_s": None, "max_rss_kb": None, "exit_status": None}
    for line in text.splitlines():
        key, sep, value = line.strip().rpartition(": ")
        if not sep:
            continue
        if key.startswith("Elapsed (wall clock) time"):
            result["wall_s"] = parse_elapsed(value)
        elif key == "Maximum resident set size (kbytes)":
            result["max_rss_kb"] = int(value)
        elif key == "Exit status":
            result["exit_status"] = int(value)
    return result


def make_record(args_set, task, program, order, time_text=None, exit_code=None, timeout=None,
                status=None, quality=None, notes=()):
    """The JSON object of one run."""
    rec = {"set": args_set, "task": task, "program": program, "order": order,
           "status": status, "wall_s": None, "rss_mb": None, "quality": {}, "notes": list(notes)}
    if time_text is not None:
        t = parse_time_v(time_text)
        rec["wall_s"] = t["wall_s"]
        rec["rss_mb"] = t["max_rss_kb"] / 1024.0 if t["max_rss_kb"] is not None else None
        code = exit_code if exit_code is not None else t["exit_status"]
        if status is None:
            if code == 0:
                rec["status"] = "ok"
            elif code in (124, 137):  # timeout(1) ran out, or had to kill
                rec["status"] = "timeout"
                if timeout:
                    rec["notes"].insert(0, f"timeout after {timeout} s")
            else:
                rec["status"] = "failed"
                rec["notes"].insert(0, f"exit status {code}")
    if quality:
        for key in QUALITY:
            if quality.get(key) is not None:
                rec["quality"][key] = quality[key]
        rec["notes"].extend(quality.get("notes", []))
    if rec["status"] is None:
        rec["status"] = "ok"
    return rec


# --- tables ------------------------------------------------------------------------------------

def fmt(value):
    if value is None:
        return "—"
    if isinstance(value, float):
        if value == 0:
            return "0"
        if abs(value) >= 1000:
            return f"{value:.0f}"
        if abs(value) >= 100:
            return f"{value:.1f}"
        return f"{value:.2f}" if abs(value) >= 1 else f"{value:.3g}"
    return str(value)


def ratio(ours, peer):
    """"a× time, b× RSS" of ours against a peer; "—" when either was not measured."""
    if ours is None or peer is None or ours.get("status") != "ok" or peer.get("status") != "ok":
        return "—"
    parts = []
    if ours.get("wall_s") is not None and peer.get("wall_s"):
        parts.append(f"{ours['wall_s'] / peer['wall_s']:.2f}× time")
    if ours.get("rss_mb") is not None and peer.get("rss_mb"):
        parts.append(f"{ours['rss_mb'] / peer['rss_mb']:.2f}× RSS")
    return ", ".join(parts) if parts else "—"


def row(rec, ours):
    timed = rec["status"] == "ok" or rec["status"] in ("failed", "timeout")
    wall = fmt(rec["wall_s"]) if timed and rec["wall_s"] is not None else "—"
    rss = fmt(rec["rss_mb"]) if timed and rec["rss_mb"] is not None else "—"
    notes = list(rec.get("notes", []))
    if rec["status"] != "ok":
        notes.insert(0, rec["status"])
    cells = [rec["program"], wall, rss,
             "—" if rec["program"] == OURS else ratio(ours, rec)]
    cells += [fmt(rec["quality"].get(k)) for k in QUALITY]
    cells.append("; ".join(n for n in notes if n).replace("|", "/"))
    return "| " + " | ".join(cells) + " |"


def table(records):
    """A markdown table of one set and task: ours first, then the peers in run order."""
    records = sorted(records, key=lambda r: (r["program"] != OURS, r.get("order", 0)))
    ours = next((r for r in records if r["program"] == OURS), None)
    lines = ["| " + " | ".join(COLUMNS) + " |", "|" + "---|" * len(COLUMNS)]
    lines += [row(r, ours) for r in records]
    return "\n".join(lines)


def render(records, meta):
    out = ["# End-to-end benchmarks", ""]
    out.append(f"Run {meta.get('date', '?')} on {meta.get('cpu', '?')}, "
               f"{meta.get('nproc', '?')} cores, {meta.get('memory', '?')} memory.")
    load = meta.get("load")
    if load:
        line = "Load average (1, 5, 15 min): " + ", ".join(f"{k} {v}" for k, v in load.items())
        try:
            busy = max(float(v.split()[0]) for v in load.values()) > float(meta.get("nproc"))
        except (ValueError, TypeError, IndexError):
            busy = False
        if busy:
            line += "; other work shared the cores, so the timings are high"
        out.append(line + ".")
    versions = meta.get("versions", {})
    if versions:
        out.append("Peers: " + ", ".join(f"{k} {v}" for k, v in versions.items()) + ".")
    out += ["",
            "Wall time and peak RSS come from `/usr/bin/time -v` around each program. Ratios are "
            "ours over the peer (below 1 is better for us). Quality figures come from "
            "`astrivelle-synth measure` against the night's truth: noise and fwhm of the output "
            "image, snrGain of a stack against the same program's first calibrated light, "
            "cornerError the largest over all frames, completeness and positionError of the "
            "detected stars. — means not measured or not applicable.", ""]
    sets = []
    for r in records:
        if r["set"] not in sets:
            sets.append(r["set"])
    for s in sets:
        described = meta.get("sets", {}).get(s)
        out.append(f"## {s}" + (f" ({described})" if described else ""))
        out.append("")
        for task, title in TASKS:
            chosen = [r for r in records if r["set"] == s and r["task"] == task]
            if not chosen:
                continue
            out += [f"### {title}", "", table(chosen), ""]
    return "\n".join(out)


def load_runs(folder, set_order=()):
    records = []
    for path in sorted(glob.glob(os.path.join(folder, "**", "*.json"), recursive=True)):
        with open(path) as f:
            records.append(json.load(f))
    order = {name: i for i, (name, _) in enumerate(TASKS)}
    # data sets in the order they were first written, tasks in their fixed order
    sets = {name: i for i, name in enumerate(set_order)}
    for r in records:
        sets.setdefault(r["set"], len(sets))
    records.sort(key=lambda r: (sets[r["set"]], order.get(r["task"], 99), r.get("order", 0)))
    return records


# --- machine -----------------------------------------------------------------------------------

def load_average():
    try:
        with open("/proc/loadavg") as f:
            return " ".join(f.read().split()[:3])
    except OSError:
        return "?"


def machine_meta():
    meta = {"date": datetime.datetime.now().strftime("%Y-%m-%d %H:%M"),
            "nproc": os.cpu_count(), "cpu": platform.processor() or "?", "memory": "?",
            "versions": {}}
    try:
        with open("/proc/cpuinfo") as f:
            m = re.search(r"^model name\s*:\s*(.+)$", f.read(), re.M)
            if m:
                meta["cpu"] = m.group(1).strip()
        with open("/proc/meminfo") as f:
            m = re.search(r"^MemTotal:\s*(\d+) kB", f.read(), re.M)
            if m:
                meta["memory"] = f"{int(m.group(1)) / 1024 / 1024:.1f} GiB"
    except OSError:
        pass
    try:
        text = subprocess.run(["siril-cli", "--version"], capture_output=True, text=True,
                              timeout=60).stdout
        m = re.search(r"siril\s+(\S+)", text)
        meta["versions"]["Siril"] = m.group(1) if m else "?"
    except (OSError, subprocess.SubprocessError):
        meta["versions"]["Siril"] = "missing"
    for name, module in (("ccdproc", "ccdproc"), ("astroalign", "astroalign"), ("SEP", "sep"),
                         ("astropy", "astropy"), ("numpy", "numpy")):
        try:
            meta["versions"][name] = __import__(module).__version__
        except Exception:  # a missing or broken module is reported, not fatal
            meta["versions"][name] = "missing"
    return meta


def main(argv=None):
    p = argparse.ArgumentParser()
    sub = p.add_subparsers(dest="command", required=True)
    r = sub.add_parser("record")
    r.add_argument("--out", required=True)
    r.add_argument("--set", required=True)
    r.add_argument("--task", required=True)
    r.add_argument("--program", required=True)
    r.add_argument("--order", type=int, default=0)
    r.add_argument("--time")
    r.add_argument("--exit", type=int)
    r.add_argument("--timeout", type=int)
    r.add_argument("--status")
    r.add_argument("--quality")
    r.add_argument("--note", action="append", default=[])
    m = sub.add_parser("meta")
    m.add_argument("--out", required=True)
    m.add_argument("--load-start", help="the load average when the run began")
    m.add_argument("--set-info", action="append", default=[], help="NAME=description")
    d = sub.add_parser("render")
    d.add_argument("--runs", required=True)
    d.add_argument("--meta", required=True)
    d.add_argument("--out", required=True)
    a = p.parse_args(argv)

    if a.command == "record":
        time_text = None
        if a.time:
            try:
                with open(a.time) as f:
                    time_text = f.read()
            except OSError:
                time_text = ""
        quality = None
        if a.quality and os.path.exists(a.quality):
            with open(a.quality) as f:
                quality = json.load(f)
        rec = make_record(a.set, a.task, a.program, a.order, time_text, a.exit, a.timeout,
                          a.status, quality, a.note)
        os.makedirs(os.path.dirname(os.path.abspath(a.out)), exist_ok=True)
        with open(a.out, "w") as f:
            json.dump(rec, f, indent=1)
    elif a.command == "meta":
        meta = machine_meta()
        meta["sets"] = dict(s.split("=", 1) for s in a.set_info)
        if a.load_start:
            meta["load"] = {"at the start": a.load_start, "at the end": load_average()}
        with open(a.out, "w") as f:
            json.dump(meta, f, indent=1)
    else:
        with open(a.meta) as f:
            meta = json.load(f)
        text = render(load_runs(a.runs, list(meta.get("sets", {}))), meta)
        os.makedirs(os.path.dirname(os.path.abspath(a.out)), exist_ok=True)
        with open(a.out, "w") as f:
            f.write(text + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
