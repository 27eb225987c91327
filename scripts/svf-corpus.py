#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The SVF corpus in tests/data/svf/: generates its generated files and checks
its manifest against Debian's OpenOCD.

    scripts/svf-corpus.py generate [--seed N]
        (re)writes every gen-*.svf file from a model of the simulator's chain
        (the same seed gives the same bytes)

    scripts/svf-corpus.py verify [--tetherhost BIN] [--openocd BIN] [FILE...]
        plays each file of corpus.json (or only the FILEs named) with
        OpenOCD's `svf` and `svf -ignore_error` through the simulator's
        remote_bitbang door, one fresh simulator per run, and compares what
        OpenOCD reports with the manifest; exit status 0 when all agree

    scripts/svf-corpus.py play CHAIN FILE [svf options...]
        plays one file the same way and prints OpenOCD's output

verify and play run themselves in a private network namespace (unshare -rn),
so the simulator's fixed port 4001 and the door's port meet nobody else.
Python 3 standard library only.
"""

import argparse
import json
import os
import random
import re
import signal
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CORPUS = os.path.join(ROOT, "tests", "data", "svf")
CHAINS = os.path.join(ROOT, "chains")
DOOR_PORT = 44853
DEFAULT_SEED = 20261125


# --------------------------------------------------------------------------
# Chain files

def load_chain(name):
    """The devices of a shipped chain (or a path), TDI to TDO, numbers parsed."""
    path = name if ("/" in name or name.endswith(".json")) else os.path.join(CHAINS, name + ".json")
    with open(path) as f:
        data = json.load(f)

    def number(value):
        return value if isinstance(value, int) else int(value, 0)

    devices = []
    for position, d in enumerate(data["devices"]):
        ir_length = number(d["irLength"])
        device = {
            "name": d.get("name", "tap%d" % position),
            "irLength": ir_length,
            "irCapture": number(d.get("irCapture", 1)),
            "idcode": number(d["idcode"]) if "idcode" in d else None,
            "idcodeInstruction": number(d["idcodeInstruction"]) if "idcode" in d else None,
            "instructions": {},
        }
        for iname, i in d.get("instructions", {}).items():
            device["instructions"][number(i["opcode"])] = {
                "name": iname,
                "length": number(i["length"]),
                "capture": number(i["capture"]) if "capture" in i else None,
            }
        devices.append(device)
    return devices


def newtap_commands(devices):
    """`jtag newtap` commands for a chain: the first TAP declared is the one
    next to TDO, so the devices are declared from TDO back to TDI."""
    commands = []
    for position in reversed(range(len(devices))):
        d = devices[position]
        command = "jtag newtap d%d tap -irlen %d" % (position, d["irLength"])
        if d["idcode"] is not None:
            command += " -expected-id 0x%08x" % d["idcode"]
        if d["irCapture"] & 0b11 != 0b01:
            command += " -ircapture 0x%x -irmask 0x%x" % (d["irCapture"], (1 << d["irLength"]) - 1)
        commands.append(command)
    return commands


# --------------------------------------------------------------------------
# A model of the simulator's chain, clocked one TCK at a time

STATES = ["RESET", "IDLE", "DRSELECT", "DRCAPTURE", "DRSHIFT", "DREXIT1", "DRPAUSE", "DREXIT2",
          "DRUPDATE", "IRSELECT", "IRCAPTURE", "IRSHIFT", "IREXIT1", "IRPAUSE", "IREXIT2", "IRUPDATE"]
# next state for TMS 0 and TMS 1 (IEEE 1149.1)
NEXT = {
    "RESET": ("IDLE", "RESET"), "IDLE": ("IDLE", "DRSELECT"),
    "DRSELECT": ("DRCAPTURE", "IRSELECT"), "DRCAPTURE": ("DRSHIFT", "DREXIT1"),
    "DRSHIFT": ("DRSHIFT", "DREXIT1"), "DREXIT1": ("DRPAUSE", "DRUPDATE"),
    "DRPAUSE": ("DRPAUSE", "DREXIT2"), "DREXIT2": ("DRSHIFT", "DRUPDATE"),
    "DRUPDATE": ("IDLE", "DRSELECT"), "IRSELECT": ("IRCAPTURE", "RESET"),
    "IRCAPTURE": ("IRSHIFT", "IREXIT1"), "IRSHIFT": ("IRSHIFT", "IREXIT1"),
    "IREXIT1": ("IRPAUSE", "IRUPDATE"), "IRPAUSE": ("IRPAUSE", "IREXIT2"),
    "IREXIT2": ("IRSHIFT", "IRUPDATE"), "IRUPDATE": ("IDLE", "DRSELECT"),
}
STABLE = ("RESET", "IDLE", "DRPAUSE", "IRPAUSE")
# The paths OpenOCD's svf command takes for STATE without a path (and for
# RUNTEST's moves), listed after the state it starts from.
SVF_MOVES = {
    ("RESET", "IDLE"): ["IDLE"],
    ("RESET", "DRPAUSE"): ["IDLE", "DRSELECT", "DRCAPTURE", "DREXIT1", "DRPAUSE"],
    ("RESET", "IRPAUSE"): ["IDLE", "DRSELECT", "IRSELECT", "IRCAPTURE", "IREXIT1", "IRPAUSE"],
    ("IDLE", "IDLE"): ["IDLE"],
    ("IDLE", "DRPAUSE"): ["DRSELECT", "DRCAPTURE", "DREXIT1", "DRPAUSE"],
    ("IDLE", "IRPAUSE"): ["DRSELECT", "IRSELECT", "IRCAPTURE", "IREXIT1", "IRPAUSE"],
    ("DRPAUSE", "IDLE"): ["DREXIT2", "DRUPDATE", "IDLE"],
    ("DRPAUSE", "DRPAUSE"): ["DREXIT2", "DRUPDATE", "DRSELECT", "DRCAPTURE", "DREXIT1", "DRPAUSE"],
    ("DRPAUSE", "IRPAUSE"): ["DREXIT2", "DRUPDATE", "DRSELECT", "IRSELECT", "IRCAPTURE", "IREXIT1",
                             "IRPAUSE"],
    ("IRPAUSE", "IDLE"): ["IREXIT2", "IRUPDATE", "IDLE"],
    ("IRPAUSE", "DRPAUSE"): ["IREXIT2", "IRUPDATE", "DRSELECT", "DRCAPTURE", "DREXIT1", "DRPAUSE"],
    ("IRPAUSE", "IRPAUSE"): ["IREXIT2", "IRUPDATE", "DRSELECT", "IRSELECT", "IRCAPTURE", "IREXIT1",
                             "IRPAUSE"],
}


def shortest_path(start, target):
    """TMS values of the shortest path from start to target (breadth first)."""
    came = {start: None}
    queue = [start]
    while queue:
        state = queue.pop(0)
        for tms in (0, 1):
            nxt = NEXT[state][tms]
            if nxt not in came:
                came[nxt] = (state, tms)
                queue.append(nxt)
    path = []
    state = target
    while state != start:
        state, tms = came[state]
        path.insert(0, tms)
    return path


class Register:
    def __init__(self, length, value=0):
        self.length = length
        self.value = value & ((1 << length) - 1)

    def shift(self, bit):
        out = self.value & 1
        self.value = (self.value >> 1) | (bit << (self.length - 1))
        return out


class Chain:
    """The simulator's JTAG chain: capture, shift and update as it does them."""

    def __init__(self, devices):
        self.devices = devices
        self.state = "RESET"
        self.taps = []
        for d in devices:
            self.taps.append({
                "instruction": self.reset_instruction(d),
                "ir": Register(d["irLength"]),
                "fixed": Register(1),
                "listed": {op: Register(i["length"]) for op, i in d["instructions"].items()},
                "active": None,
            })
            self.taps[-1]["active"] = self.taps[-1]["fixed"]

    @staticmethod
    def reset_instruction(d):
        return d["idcodeInstruction"] if d["idcode"] is not None else (1 << d["irLength"]) - 1

    def dr_length(self, position):
        d, tap = self.devices[position], self.taps[position]
        if tap["instruction"] in d["instructions"]:
            return d["instructions"][tap["instruction"]]["length"]
        if d["idcode"] is not None and tap["instruction"] == d["idcodeInstruction"]:
            return 32
        return 1

    def capture(self, kind):
        for d, tap in zip(self.devices, self.taps):
            if kind == "IR":
                tap["active"] = tap["ir"]
                tap["ir"].value = d["irCapture"]
                continue
            listed = d["instructions"].get(tap["instruction"])
            if listed is not None:
                register = tap["listed"][tap["instruction"]]
                tap["active"] = register
                if listed["capture"] is not None:
                    register.value = listed["capture"] & ((1 << register.length) - 1)
                continue
            if d["idcode"] is not None and tap["instruction"] == d["idcodeInstruction"]:
                tap["fixed"] = Register(32, d["idcode"])
            else:
                tap["fixed"] = Register(1, 0)
            tap["active"] = tap["fixed"]

    def enter(self, state):
        self.state = state
        if state == "IRUPDATE":
            for tap in self.taps:
                tap["instruction"] = tap["ir"].value
        elif state == "RESET":
            for d, tap in zip(self.devices, self.taps):
                tap["instruction"] = self.reset_instruction(d)

    def clock(self, tms, tdi=0):
        tdo = 1
        if self.state == "DRCAPTURE":
            self.capture("DR")
        elif self.state == "IRCAPTURE":
            self.capture("IR")
        elif self.state in ("DRSHIFT", "IRSHIFT"):
            bit = tdi
            for tap in self.taps:
                bit = tap["active"].shift(bit)
            tdo = bit
        self.enter(NEXT[self.state][tms])
        return tdo

    def tlr(self):
        for _ in range(5):
            self.clock(1)

    def step_to(self, state):
        for tms in (0, 1):
            if NEXT[self.state][tms] == state:
                self.clock(tms)
                return
        raise ValueError("%s does not follow %s" % (state, self.state))

    def svf_move(self, target):
        """STATE without a path, as OpenOCD's svf command moves."""
        if target == "RESET":
            self.tlr()
            return
        for state in SVF_MOVES[(self.state, target)]:
            self.step_to(state)

    def scan(self, kind, length, tdi, end):
        """An SIR or SDR of `length` bits (headers included) ending in `end`;
        the TDO bits as an integer (bit 0 first out)."""
        shift = kind + "SHIFT"
        pause = kind + "PAUSE"
        if self.state == pause:
            self.clock(1)  # Exit2
            self.clock(0)  # Shift, no new Capture
        else:
            for tms in shortest_path(self.state, shift):
                self.clock(tms)
        tdo = 0
        for i in range(length):
            tdo |= self.clock(1 if i == length - 1 else 0, (tdi >> i) & 1) << i
        if end == "RESET":
            for tms in shortest_path(self.state, "RESET"):
                self.clock(tms)
        elif self.state != end:
            for tms in shortest_path(self.state, end):
                self.clock(tms)
        return tdo

    def runtest(self, run_state, count, end_state):
        if self.state != run_state:
            self.svf_move(run_state)
        for _ in range(count):
            self.clock(1 if run_state == "RESET" else 0)
        if end_state != run_state:
            self.svf_move(end_state)


# --------------------------------------------------------------------------
# Writing SVF

def hexof(value, bits, width=64, indent="\t\t"):
    """`value` as SVF hex for a scan of `bits` bits, first bit rightmost,
    broken into lines of `width` digits when it is long."""
    digits = max(1, (bits + 3) // 4)
    text = format(value, "0%dX" % digits)
    if len(text) <= width:
        return "(" + text + ")"
    lines = [text[i:i + width] for i in range(0, len(text), width)]
    return "(" + ("\n" + indent).join(lines) + ")"


class Writer:
    """The lines of a file being written. With a failure rate, some checked
    scans get one expected bit flipped under their mask; `failing` holds
    the line of each such statement's closing ';'."""

    def __init__(self, failure_rate=0.0, rng=None):
        self.lines = []
        self.failure_rate = failure_rate
        self.rng = rng
        self.failing = []

    def add(self, text):
        self.lines.extend(text.split("\n"))

    def scan(self, *arguments):
        mutate = self.failure_rate > 0 and self.rng.random() < self.failure_rate
        text, mutated = scan_statement(*arguments, mutate=mutate)
        self.add(text)
        if mutated:
            self.failing.append(self.line_count())

    def line_count(self):
        return len(self.lines)

    def text(self):
        return "\n".join(self.lines) + "\n"


class Sticky:
    """The parameters a scan of one kind carries over, as the SVF definition
    keeps them and as OpenOCD keeps them (OpenOCD clears the mask when a scan
    has no TDO): a generated scan leaves MASK out only where both agree."""

    def __init__(self):
        self.length = None
        self.tdi = None
        self.mask_svf = None
        self.mask_openocd = None


def scan_statement(kind, chain, sticky, length, tdi, check, rng, end, header, trailer, mutate=False):
    """One SIR or SDR: shifts it through the model and writes it with a TDO
    check (when `check`) under a random mask. `header` and `trailer` are
    (length, tdi) of the HIR/HDR and TIR/TDR in force."""
    hlen, htdi = header
    tlen, ttdi = trailer
    full = hlen + length + tlen
    full_tdi = htdi | (tdi << hlen) | (ttdi << (hlen + length))
    tdo = chain.scan("IR" if kind == "SIR" else "DR", full, full_tdi, end)
    body = (tdo >> hlen) & ((1 << length) - 1) if length else 0
    parts = ["%s %d" % (kind, length)]
    same_length = sticky.length == length
    if not (same_length and sticky.tdi == tdi and rng.random() < 0.3):
        parts.append("TDI " + hexof(tdi, length))
    if check:
        mask = (1 << length) - 1
        if rng.random() < 0.4:
            mask = rng.getrandbits(length) | 1
        expected = body & mask
        if rng.random() < 0.5:  # bits under a 0 in the mask may hold anything
            expected |= rng.getrandbits(length) & ~mask & ((1 << length) - 1)
        mutated = mutate and mask != 0
        if mutated:  # one bit under the mask turned: a mismatch
            care = [i for i in range(length) if (mask >> i) & 1]
            expected ^= 1 << rng.choice(care)
        parts.append("TDO " + hexof(expected, length))
        implied = sticky.mask_svf if same_length else (1 << length) - 1
        implied_openocd = sticky.mask_openocd if same_length else (1 << length) - 1
        if not (mask == implied == implied_openocd and rng.random() < 0.5):
            parts.append("MASK " + hexof(mask, length))
        sticky.mask_svf = sticky.mask_openocd = mask
    else:
        mutated = False
        if not same_length:
            sticky.mask_svf = (1 << length) - 1
        sticky.mask_openocd = 0
    if rng.random() < 0.1:
        parts.append("SMASK " + hexof((1 << length) - 1, length))
    sticky.length = length
    sticky.tdi = tdi
    return ("\t".join(parts) if rng.random() < 0.1 else " ".join(parts)) + ";", mutated


# --------------------------------------------------------------------------
# Generated files

def gen_idcodes(name):
    """Reads the IDCODEs after reset, checks every instruction register's
    capture, then BYPASS on every device, then IDCODE again after a reset."""
    devices = load_chain(name)
    chain = Chain(devices)
    n = len(devices)
    w = Writer()
    w.add("! IDCODEs, instruction captures and BYPASS of chain %s" % name)
    w.add("! (generated by scripts/svf-corpus.py; devices TDI to TDO: %s)"
          % ", ".join(d["name"] for d in devices))
    w.add("TRST OFF;\nENDIR IDLE;\nENDDR IDLE;\nSTATE RESET;\nSTATE IDLE;")
    chain.svf_move("IDLE")
    # after reset every device has its IDCODE (or BYPASS) selected
    dr = sum(chain.dr_length(p) for p in range(n))
    tdo = chain.scan("DR", dr, 0, "IDLE")
    w.add("! after reset: %d bits of IDCODE and BYPASS registers" % dr)
    w.add("SDR %d TDI %s\n\tTDO %s\n\tMASK %s;" % (dr, hexof(0, dr), hexof(tdo, dr), hexof((1 << dr) - 1, dr)))
    ir = sum(d["irLength"] for d in devices)
    ones = (1 << ir) - 1
    tdo = chain.scan("IR", ir, ones, "IDLE")
    capture_mask = 0
    offset = 0
    for d in reversed(devices):  # the device next to TDO comes out first
        capture_mask |= 0b11 << offset
        offset += d["irLength"]
    w.add("! all ones: BYPASS everywhere; each instruction register shows its capture")
    w.add("SIR %d TDI %s TDO %s MASK %s;" % (ir, hexof(ones, ir), hexof(tdo & capture_mask, ir),
                                             hexof(capture_mask, ir)))
    pattern = 0b1011 << n
    bits = n + 4
    tdo = chain.scan("DR", bits, pattern >> n, "IDLE")
    w.add("! BYPASS: %d zeros captured, then what went in" % n)
    w.add("SDR %d TDI %s TDO %s;" % (bits, hexof(pattern >> n, bits), hexof(tdo, bits)))
    chain.svf_move("RESET")
    chain.svf_move("IDLE")
    w.add("STATE RESET;\nSTATE IDLE;")
    dr = sum(chain.dr_length(p) for p in range(n))
    tdo = chain.scan("DR", dr, 0, "IDLE")
    w.add("SDR %d TDI %s TDO %s;" % (dr, hexof(0, dr), hexof(tdo, dr)))
    w.add("RUNTEST 10 TCK;")
    return w.text()


def random_instruction(rng, d):
    choices = list(d["instructions"].keys())
    if d["idcode"] is not None:
        choices.append(d["idcodeInstruction"])
    choices.append((1 << d["irLength"]) - 1)
    if rng.random() < 0.2:
        return rng.getrandbits(d["irLength"])
    return rng.choice(choices)


def gen_random(name, seed, statements, failure_rate=0.0):
    """Random instruction and data scans with TDO checks against the model:
    several end states, split scans resumed from the pause states with
    RUNTEST in between, STATE moves, sticky TDI and MASK. No scan ends in
    RESET: OpenOCD 0.12 aborts on one (see end-state-reset.svf). Returns
    the text and the failing lines."""
    rng = random.Random("%s/%s/%s" % (seed, name, failure_rate))
    devices = load_chain(name)
    chain = Chain(devices)
    n = len(devices)
    w = Writer(failure_rate, random.Random("%s/failures/%s" % (seed, name)))
    if failure_rate:
        w.add("! random scans on chain %s; some checks expect one bit wrong on purpose" % name)
    else:
        w.add("! random scans on chain %s, checked against the simulator's model" % name)
    w.add("! (generated by scripts/svf-corpus.py, seed %s)" % seed)
    w.add("STATE RESET;")
    sir, sdr = Sticky(), Sticky()
    endir, enddr = "IDLE", "IDLE"
    none = (0, 0)
    count = 0
    while count < statements:
        roll = rng.random()
        if roll < 0.35:
            ops = [random_instruction(rng, d) for d in devices]
            ir = sum(d["irLength"] for d in devices)
            value = 0
            offset = 0
            for d, op in reversed(list(zip(devices, ops))):  # the device next to TDO takes the first bits
                value |= op << offset
                offset += d["irLength"]
            if rng.random() < 0.25 and chain.state != "IRPAUSE":
                # split: the first piece stops in IRPAUSE, the rest resumes
                cut = rng.randrange(1, ir)
                if endir != "IRPAUSE":
                    w.add("ENDIR IRPAUSE;")
                    endir = "IRPAUSE"
                w.scan("SIR", chain, sir, cut, value & ((1 << cut) - 1), True, rng, "IRPAUSE",
                       none, none)
                if rng.random() < 0.5:
                    w.add("RUNTEST IRPAUSE %d TCK ENDSTATE IRPAUSE;" % rng.randrange(1, 20))
                    chain.runtest("IRPAUSE", 0, "IRPAUSE")
                end = rng.choice(["IDLE", "IDLE", "DRPAUSE"]) if rng.random() < 0.3 else "IDLE"
                w.add("ENDIR %s;" % end)
                endir = end
                w.scan("SIR", chain, sir, ir - cut, value >> cut, True, rng, end, none, none)
                count += 2
            else:
                if chain.state == "IRPAUSE" and endir == "IRPAUSE":
                    w.add("ENDIR IDLE;")
                    endir = "IDLE"
                if rng.random() < 0.2:
                    end = rng.choice(["IDLE", "DRPAUSE"])
                    if end != endir:
                        w.add("ENDIR %s;" % end)
                        endir = end
                w.scan("SIR", chain, sir, ir, value, rng.random() < 0.8, rng, endir, none, none)
                count += 1
        elif roll < 0.8:
            dr = sum(chain.dr_length(p) for p in range(n))
            if rng.random() < 0.15:
                dr += rng.randrange(1, 9)  # longer than the chain: TDI comes back out
            value = rng.getrandbits(dr)
            if rng.random() < 0.3 and dr > 2 and chain.state != "DRPAUSE":
                pieces = sorted(rng.sample(range(1, dr), min(dr - 1, rng.randrange(1, 4))))
                bounds = [0] + pieces + [dr]
                if enddr != "DRPAUSE":
                    w.add("ENDDR DRPAUSE;")
                    enddr = "DRPAUSE"
                for k in range(len(bounds) - 1):
                    lo, hi = bounds[k], bounds[k + 1]
                    last = k == len(bounds) - 2
                    if last:
                        end = rng.choice(["IDLE", "IDLE", "IRPAUSE"]) if rng.random() < 0.3 else "IDLE"
                        w.add("ENDDR %s;" % end)
                        enddr = end
                    w.scan("SDR", chain, sdr, hi - lo, (value >> lo) & ((1 << (hi - lo)) - 1),
                           rng.random() < 0.9, rng, enddr, none, none)
                    count += 1
                    if not last and rng.random() < 0.5:
                        w.add("RUNTEST DRPAUSE %d TCK;" % rng.randrange(1, 50))
                        chain.runtest("DRPAUSE", 0, "DRPAUSE")
            else:
                if chain.state == "DRPAUSE" and enddr == "DRPAUSE":
                    w.add("ENDDR IDLE;")
                    enddr = "IDLE"
                if rng.random() < 0.2:
                    end = rng.choice(["IDLE", "IRPAUSE"])
                    if end != enddr:
                        w.add("ENDDR %s;" % end)
                        enddr = end
                w.scan("SDR", chain, sdr, dr, value, rng.random() < 0.85, rng, enddr, none, none)
                count += 1
        elif roll < 0.9:
            target = rng.choice(STABLE)
            if chain.state in ("DRPAUSE", "IRPAUSE") and target == chain.state:
                target = "IDLE"
            w.add("STATE %s;" % target)
            chain.svf_move(target)
            count += 1
        else:
            run = rng.choice(["IDLE", "IDLE", "DRPAUSE", "IRPAUSE", "RESET"])
            end = rng.choice(["IDLE", run])
            ticks = rng.randrange(1, 200)
            w.add("RUNTEST %s %d TCK ENDSTATE %s;" % (run, ticks, end))
            chain.runtest(run, ticks, end)
            count += 1
    w.add("ENDIR IDLE;\nENDDR IDLE;\nSTATE IDLE;")
    return w.text(), w.failing


def gen_headers(name, seed, rounds):
    """HIR/HDR/TIR/TDR put every device but one in BYPASS; each round
    addresses one device, selects one of its registers and scans it with a
    check, so the checks pass only if the headers were counted right."""
    rng = random.Random("%s/headers/%s" % (seed, name))
    devices = load_chain(name)
    chain = Chain(devices)
    n = len(devices)
    w = Writer()
    w.add("! one device at a time on chain %s: the others are covered by HIR/TIR" % name)
    w.add("! (their IR bits, all ones: BYPASS) and HDR/TDR (one bit each)")
    w.add("! (generated by scripts/svf-corpus.py, seed %s)" % seed)
    w.add("TRST OFF;\nENDIR IDLE;\nENDDR IDLE;\nSTATE RESET;")
    sir, sdr = Sticky(), Sticky()
    for _ in range(rounds):
        target = rng.randrange(n)
        # header: the devices between the target and TDO (shifted first);
        # trailer: the devices between TDI and the target
        hir = sum(d["irLength"] for d in devices[target + 1:])
        tir = sum(d["irLength"] for d in devices[:target])
        hdr, tdr = n - 1 - target, target
        d = devices[target]
        w.add("! device %d (%s), IR %d bits" % (target, d["name"], d["irLength"]))
        w.add("HIR %d%s;" % (hir, " TDI " + hexof((1 << hir) - 1, hir) if hir else ""))
        w.add("TIR %d%s;" % (tir, " TDI " + hexof((1 << tir) - 1, tir) if tir else ""))
        hdr_check = rng.random() < 0.5
        w.add("HDR %d%s;" % (hdr, (" TDI " + hexof(0, hdr) + (" TDO " + hexof(0, hdr) if hdr_check else ""))
                             if hdr else ""))
        w.add("TDR %d%s;" % (tdr, " TDI " + hexof(0, tdr) if tdr else ""))
        op = random_instruction(rng, d)
        w.scan("SIR", chain, sir, d["irLength"], op, True, rng, "IDLE",
               (hir, (1 << hir) - 1), (tir, (1 << tir) - 1))
        length = chain.dr_length(target)
        for _ in range(rng.randrange(1, 3)):
            value = rng.getrandbits(length)
            # the header bits come out first: the BYPASS bits of the devices
            # nearer TDO, which capture 0; HDR's TDO checks them when given
            w.scan("SDR", chain, sdr, length, value, True, rng, "IDLE", (hdr, 0), (tdr, 0))
    w.add("HIR 0;\nHDR 0;\nTIR 0;\nTDR 0;")
    dr = sum(chain.dr_length(p) for p in range(n))
    tdo = chain.scan("DR", dr, 0, "IDLE")
    w.add("! the whole chain once more, without headers")
    w.add("SDR %d TDI %s TDO %s;" % (dr, hexof(0, dr), hexof(tdo, dr)))
    return w.text()


def gen_bypass_long(name, seed, bits):
    """One long data scan through the chain in BYPASS: TDO is TDI delayed by
    the number of devices (each BYPASS bit captures 0)."""
    rng = random.Random("%s/bypass/%s" % (seed, name))
    devices = load_chain(name)
    chain = Chain(devices)
    n = len(devices)
    ir = sum(d["irLength"] for d in devices)
    w = Writer()
    w.add("! %d bits through chain %s in BYPASS: TDO is TDI %d bits late" % (bits, name, n))
    w.add("! (generated by scripts/svf-corpus.py, seed %s)" % seed)
    w.add("STATE RESET;")
    chain.svf_move("RESET")
    w.add("SIR %d TDI %s;" % (ir, hexof((1 << ir) - 1, ir)))
    chain.scan("IR", ir, (1 << ir) - 1, "IDLE")
    value = rng.getrandbits(bits)
    tdo = chain.scan("DR", bits, value, "IDLE")
    assert tdo == (value << n) & ((1 << bits) - 1)
    w.add("SDR %d\n\tTDI %s\n\tTDO %s;" % (bits, hexof(value, bits), hexof(tdo, bits)))
    # the last n bits shifted in are still in the BYPASS registers
    w.add("SDR %d TDI %s TDO %s;" % (n, hexof(0, n), hexof(0, n)))
    chain.scan("DR", n, 0, "IDLE")
    w.add("STATE RESET;")
    return w.text()


def gen_split_long(name, seed, bits, pieces):
    """A data scan longer than the chain through the longest register of
    each device (one that keeps its bits where there is a choice), split in
    pieces that stop in DRPAUSE with RUNTEST DRPAUSE between them; then the
    registers are read back."""
    rng = random.Random("%s/split/%s" % (seed, name))
    devices = load_chain(name)
    chain = Chain(devices)
    n = len(devices)
    w = Writer()
    w.add("! a %d-bit data scan on chain %s split in %d pieces that stop in DRPAUSE" % (bits, name, pieces))
    w.add("! (generated by scripts/svf-corpus.py, seed %s)" % seed)
    w.add("STATE RESET;\nENDIR IDLE;")
    chain.svf_move("RESET")
    # select the longest register of each device (or BYPASS)
    value = 0
    offset = 0
    for d in reversed(devices):
        op = (1 << d["irLength"]) - 1
        if d["instructions"]:
            op = max(d["instructions"].items(), key=lambda kv: (kv[1]["length"], kv[1]["capture"] is None))[0]
        value |= op << offset
        offset += d["irLength"]
    ir = offset
    tdo = chain.scan("IR", ir, value, "IDLE")
    w.add("SIR %d TDI %s TDO %s MASK %s;" % (ir, hexof(value, ir), hexof(tdo, ir), hexof(0, ir)))
    cuts = sorted(rng.sample(range(1, bits), pieces - 1))
    bounds = [0] + cuts + [bits]
    data = rng.getrandbits(bits)
    w.add("ENDDR DRPAUSE;")
    sdr = Sticky()
    for k in range(pieces):
        lo, hi = bounds[k], bounds[k + 1]
        if k == pieces - 1:
            w.add("ENDDR IDLE;")
        end = "IDLE" if k == pieces - 1 else "DRPAUSE"
        piece = (data >> lo) & ((1 << (hi - lo)) - 1)
        w.scan("SDR", chain, sdr, hi - lo, piece, True, rng, end, (0, 0), (0, 0))
        if k < pieces - 1:
            ticks = rng.randrange(1, 100)
            w.add("RUNTEST DRPAUSE %d TCK;" % ticks)
            chain.runtest("DRPAUSE", ticks, "DRPAUSE")
    # read back what stayed in registers that keep their bits
    dr = sum(chain.dr_length(p) for p in range(n))
    tdo = chain.scan("DR", dr, 0, "IDLE")
    w.add("! what the registers hold now")
    w.add("SDR %d TDI %s TDO %s;" % (dr, hexof(0, dr), hexof(tdo, dr)))
    w.add("RUNTEST IDLE 10 TCK ENDSTATE IDLE;")
    return w.text()


def statement_count(text):
    """Statements in a generated file: every ';' outside comments."""
    return sum(line.count(";") for line in text.split("\n") if not line.lstrip().startswith("!"))


def generated_files(seed):
    """Every generated file: name -> (chain, text, failing lines, what it covers)."""
    files = {}
    for name in sorted(os.listdir(CHAINS)):
        if name.endswith(".json"):
            chain = name[:-5]
            files["gen-idcodes-%s.svf" % chain] = (
                chain, gen_idcodes(chain), [],
                "IDCODEs after reset, every instruction register's capture, BYPASS, IDCODEs after STATE RESET")
    for chain, count in (("default", 120), ("fpga-trio", 150), ("mixed-bench", 150), ("esp32", 80),
                         ("atmega128", 60)):
        files["gen-random-%s.svf" % chain] = (
            chain, gen_random(chain, seed, count)[0], [],
            "random SIR/SDR with TDO/MASK/SMASK checks against the model, IR and DR scans split at IRPAUSE/DRPAUSE "
            "and resumed, ENDIR/ENDDR in IDLE, IRPAUSE, DRPAUSE, STATE and RUNTEST moves, sticky TDI and MASK")
    for chain, count in (("default", 100), ("fpga-trio", 120)):
        text, failing = gen_random(chain, seed, count, failure_rate=0.06)
        files["gen-fail-random-%s.svf" % chain] = (
            chain, text, failing,
            "as gen-random, with one expected bit wrong under the mask in some checks (the failing lines)")
    for chain, rounds in (("default", 12), ("fpga-trio", 16), ("mixed-bench", 16)):
        files["gen-headers-%s.svf" % chain] = (
            chain, gen_headers(chain, seed, rounds), [],
            "HIR/TIR/HDR/TDR computed from the IR lengths to address one device at a time, HDR with TDO checks, "
            "registers that keep their bits written and read back")
    files["gen-bypass-100k-default.svf"] = (
        "default", gen_bypass_long("default", seed, 100000), [],
        "a 100,000-bit SDR through three BYPASS registers: TDO is TDI three bits late")
    files["gen-bypass-40k-mixed-bench.svf"] = (
        "mixed-bench", gen_bypass_long("mixed-bench", seed, 40000), [],
        "a 40,000-bit SDR through four BYPASS registers")
    files["gen-split-fpga-trio.svf"] = (
        "fpga-trio", gen_split_long("fpga-trio", seed, 3000, 9), [],
        "a 3,000-bit data scan split in 9 SDRs that stop in DRPAUSE, RUNTEST DRPAUSE between them")
    files["gen-split-mixed-bench.svf"] = (
        "mixed-bench", gen_split_long("mixed-bench", seed, 1000, 5), [],
        "a 1,000-bit data scan split in 5 SDRs that stop in DRPAUSE")
    return files


def command_generate(args):
    files = generated_files(args.seed)
    manifest_path = os.path.join(CORPUS, "corpus.json")
    with open(manifest_path) as f:
        manifest = json.load(f)
    kept = [e for e in manifest["files"] if e.get("origin") != "generated"]
    entries = []
    for name, (chain, text, failing, covers) in sorted(files.items()):
        with open(os.path.join(CORPUS, name), "w", newline="\n") as f:
            f.write(text)
        entries.append({
            "file": name, "chain": chain, "origin": "generated", "pass": not failing,
            "failing_lines": failing, "exit_status": 1 if failing else 0, "error_line": None,
            "commands": statement_count(text), "flags": [], "covers": covers,
        })
        print("%-40s %8d bytes" % (name, len(text)))
    manifest["files"] = kept + entries
    with open(manifest_path, "w") as f:
        f.write(format_manifest(manifest))


def format_manifest(manifest):
    """corpus.json with one line per key of each entry, for readable diffs."""
    lines = ["{"]
    for key, value in manifest.items():
        if key == "files":
            continue
        if isinstance(value, dict):
            lines.append("  %s: {" % json.dumps(key))
            items = list(value.items())
            for j, (k, v) in enumerate(items):
                lines.append("    %s: %s%s" % (json.dumps(k), json.dumps(v, ensure_ascii=False),
                                              "," if j < len(items) - 1 else ""))
            lines.append("  },")
        else:
            lines.append("  %s: %s," % (json.dumps(key), json.dumps(value, ensure_ascii=False)))
    lines.append('  "files": [')
    for k, entry in enumerate(manifest["files"]):
        lines.append("    {")
        items = list(entry.items())
        for j, (key, value) in enumerate(items):
            lines.append("      %s: %s%s" % (json.dumps(key), json.dumps(value, ensure_ascii=False),
                                            "," if j < len(items) - 1 else ""))
        lines.append("    }" + ("," if k < len(manifest["files"]) - 1 else ""))
    lines.append("  ]")
    lines.append("}")
    return "\n".join(lines) + "\n"


# --------------------------------------------------------------------------
# Playing files with OpenOCD

def in_namespace():
    return os.environ.get("SVF_CORPUS_NETNS") == "1"


def enter_namespace():
    """Runs this script again in a private network namespace."""
    if in_namespace():
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return
    env = dict(os.environ, SVF_CORPUS_NETNS="1")
    os.execvpe("unshare", ["unshare", "-rn", sys.executable, os.path.abspath(__file__)] + sys.argv[1:], env)


def find_tetherhost(given):
    if given:
        return given
    for build in ("build-svfcorpus", "build"):
        path = os.path.join(ROOT, build, "bin", "tetherhost")
        if os.access(path, os.X_OK):
            return path
    sys.exit("no tetherhost found; name it with --tetherhost")


def openocd_command(openocd, devices, svf, options):
    command = [openocd, "-c", "adapter driver remote_bitbang", "-c", "remote_bitbang host 127.0.0.1",
               "-c", "remote_bitbang port %d" % DOOR_PORT, "-c", "transport select jtag"]
    for newtap in newtap_commands(devices):
        command += ["-c", newtap]
    command += ["-c", "init", "-c", " ".join(["svf"] + options + [svf]), "-c", "shutdown"]
    return command


def play(tetherhost, openocd, chain, svf, options, scratch):
    """One fresh simulator on `chain`, OpenOCD's svf on it; (exit status, output)."""
    pid_file = os.path.join(scratch, "tetherhost.pid")
    if os.path.exists(pid_file):
        os.unlink(pid_file)
    simulator = subprocess.Popen([tetherhost, "--chain", chain, "--remote-bitbang", str(DOOR_PORT),
                                  "--idle-exit", "0", "--pid-file", pid_file],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    try:
        deadline = time.monotonic() + 10
        while True:  # the pid file is written once every door listens
            try:
                with open(pid_file) as f:
                    if f.read().endswith("\n"):
                        break
            except FileNotFoundError:
                pass
            if simulator.poll() is not None:
                raise RuntimeError("tetherhost exited: %s" % simulator.stderr.read().decode())
            if time.monotonic() > deadline:
                raise RuntimeError("tetherhost did not start within 10 s")
            time.sleep(0.005)
        result = subprocess.run(openocd_command(openocd, load_chain(chain), svf, options),
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
        return result.returncode, result.stdout.decode(errors="replace")
    finally:
        simulator.send_signal(signal.SIGTERM)
        simulator.wait(timeout=10)


def summarise(status, output):
    """What the manifest records, read from OpenOCD's output."""
    failing = [int(m) for m in re.findall(r"tdo check error at line (\d+)", output)]
    error = re.findall(r"fail to run command at line (\d+)", output)
    ok = re.search(r"svf file programmed (successfully|unsuccessfully) for (\d+) commands with (\d+) errors",
                   output)
    return {
        "status": status,
        "failing_lines": failing,
        "error_line": int(error[0]) if error else None,
        "commands": int(ok.group(2)) if ok else None,
        "passed": bool(ok) and ok.group(1) == "successfully" and status == 0,
    }


def one_statement_per_line(text):
    """The file with every statement that shares a line with an earlier one
    moved onto a line of its own, and a map from the new line numbers to the
    old ones: what a reader that takes every statement of a line would run,
    in a form OpenOCD runs whole."""
    lines, origin = [], []
    for number, line in enumerate(text.split("\n"), 1):
        cut = len(line)
        for marker in ("!", "//"):
            if marker in line:
                cut = min(cut, line.index(marker))
        code, comment = line[:cut], line[cut:]
        pieces = code.split(";")
        if len(pieces) < 2 or not "".join(pieces[1:]).strip():
            lines.append(line)
            origin.append(number)
            continue
        for piece in pieces[:-1]:
            lines.append(piece.strip() + ";")
            origin.append(number)
        rest = pieces[-1] + comment
        if rest.strip():
            lines.append(rest)
            origin.append(number)
    return "\n".join(lines), origin


def compare(label, summary, expect, problems):
    if summary["passed"] != expect["pass"]:
        problems.append("%s: passed %s, manifest says %s" % (label, summary["passed"], expect["pass"]))


def check_entry(entry, tetherhost, openocd, scratch):
    """Plays one manifest entry with svf and svf -ignore_error; a list of
    disagreements with the manifest (empty: all agree) and the summaries."""
    svf = os.path.join(CORPUS, entry["file"])
    problems = []
    plain = summarise(*play(tetherhost, openocd, entry["chain"], svf, [], scratch))
    keep_going = summarise(*play(tetherhost, openocd, entry["chain"], svf, ["-ignore_error"], scratch))
    compare("svf", plain, entry, problems)
    if plain["status"] != entry["exit_status"]:
        problems.append("svf: exit status %d, manifest says %d" % (plain["status"], entry["exit_status"]))
    first = entry["failing_lines"][0] if entry["failing_lines"] else None
    got_first = plain["failing_lines"][0] if plain["failing_lines"] else None
    if got_first != first:
        problems.append("svf: first failing line %s, manifest says %s" % (got_first, first))
    if keep_going["failing_lines"] != entry["failing_lines"] and entry["exit_status"] >= 0:
        problems.append("svf -ignore_error: failing lines %s, manifest says %s"
                        % (keep_going["failing_lines"], entry["failing_lines"]))
    if plain["error_line"] != entry["error_line"]:
        problems.append("svf: error at line %s, manifest says %s" % (plain["error_line"], entry["error_line"]))
    commands = plain["commands"] if plain["commands"] is not None else keep_going["commands"]
    if commands != entry["commands"]:
        problems.append("statements run: %s, manifest says %s" % (commands, entry["commands"]))
    every = entry.get("every_statement")
    if every is not None:
        with open(svf, newline="") as f:
            text, origin = one_statement_per_line(f.read())
        split = os.path.join(scratch, "every-statement.svf")
        with open(split, "w", newline="") as f:
            f.write(text)
        whole = summarise(*play(tetherhost, openocd, entry["chain"], split, ["-ignore_error"], scratch))
        whole["passed"] = not whole["failing_lines"] and whole["status"] == 0
        lines = [origin[n - 1] for n in whole["failing_lines"]]
        compare("every statement", whole, every, problems)
        if lines != every["failing_lines"]:
            problems.append("every statement: failing lines %s, manifest says %s" % (lines, every["failing_lines"]))
    return problems, plain, keep_going


def command_verify(args):
    enter_namespace()
    tetherhost = find_tetherhost(args.tetherhost)
    with open(os.path.join(CORPUS, "corpus.json")) as f:
        manifest = json.load(f)
    entries = manifest["files"]
    if args.files:
        entries = [e for e in entries if e["file"] in args.files]
    listed = {e["file"] for e in manifest["files"]}
    unlisted = sorted(f for f in os.listdir(CORPUS) if f.endswith(".svf") and f not in listed)
    failures = 0
    started = time.monotonic()
    with tempfile.TemporaryDirectory() as scratch:
        for entry in entries:
            t0 = time.monotonic()
            problems, plain, keep_going = check_entry(entry, tetherhost, args.openocd, scratch)
            took = time.monotonic() - t0
            verdict = "ok  " if not problems else "FAIL"
            print("%s %-44s %-16s %5.2f s  exit %d, commands %s, failing lines %s%s"
                  % (verdict, entry["file"], entry["chain"], took, plain["status"],
                     plain["commands"] if plain["commands"] is not None else keep_going["commands"],
                     keep_going["failing_lines"],
                     ", error at line %d" % plain["error_line"] if plain["error_line"] else ""))
            for problem in problems:
                print("     " + problem)
            failures += bool(problems)
    print("%d files, %d disagree with the manifest, %.1f s" % (len(entries), failures, time.monotonic() - started))
    if unlisted:
        print("not in corpus.json: " + ", ".join(unlisted))
        failures += 1
    return 1 if failures else 0


def command_play(args):
    enter_namespace()
    tetherhost = find_tetherhost(args.tetherhost)
    with tempfile.TemporaryDirectory() as scratch:
        status, output = play(tetherhost, args.openocd, args.chain, os.path.abspath(args.file), args.options,
                              scratch)
    print(output)
    print("exit status %d" % status)
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = parser.add_subparsers(dest="command", required=True)
    g = sub.add_parser("generate")
    g.add_argument("--seed", type=int, default=DEFAULT_SEED)
    for name in ("verify", "play"):
        p = sub.add_parser(name)
        p.add_argument("--tetherhost")
        p.add_argument("--openocd", default="/usr/bin/openocd")
        if name == "verify":
            p.add_argument("files", nargs="*")
        else:
            p.add_argument("chain")
            p.add_argument("file")
            p.add_argument("options", nargs=argparse.REMAINDER)
    args = parser.parse_args()
    if args.command == "generate":
        return command_generate(args)
    if args.command == "verify":
        return command_verify(args)
    return command_play(args)


if __name__ == "__main__":
    sys.exit(main())
