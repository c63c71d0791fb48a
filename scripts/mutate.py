#!/usr/bin/env python3
"""A sampled mutation campaign over kel's library sources (kel/, modules/).

universalmutator makes the mutants, each one small change to one file. A mutant is built in a
copy of the tree (build-mutate/), and, when it compiles to other code than the original, the
plain suite runs against it and stops at its first failure: a failure kills the mutant; a
green suite lets it survive. A mutant whose object file is byte-identical to the original's
is equivalent (the compiler made the same code) and is not run.

Sampling is stratified by file with a fixed seed: each file's share of the sample follows its
share of all mutants, at least one each; within a file the mutants are taken in a seeded
random order, a mutant that does not compile is dropped and the next one taken, so the sample
is of compiled mutants. Results are kept in build-mutate/<part>/results.jsonl, so a campaign can
be stopped and resumed, or spread over runs with --shard K/N; report.md is written from them.

The Windows part (--windows) mutates the Windows-only files in the MSVC-ABI build and runs its
tests under Wine (tests/windows/run.sh).
"""
import argparse
import difflib
import filecmp
import glob
import hashlib
import json
import os
import random
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WINDOWS_ONLY = ("_windows.cpp", "/platform_winrt.cpp", "/winrt_views.hpp")
# Windows-only sources no test can reach on this machine, with why; the report names them.
NOT_SAMPLED = {"modules/windows-ml/platform_winrt.cpp":
               "the Windows ML seam: Wine has no Windows ML, so every path past its first activation is out of reach"}
LINUX_ONLY = ("_linux.cpp", "/platform_onnxruntime.cpp")


def sh(cmd, cwd=None, timeout=None, log=None):
    """Exit code of a shell command (124 for a time-out); output to `log` or nowhere."""
    out = open(log, "w") if log else subprocess.DEVNULL
    try:
        return subprocess.run(cmd, shell=True, cwd=cwd, stdout=out, stderr=subprocess.STDOUT,
                              timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return 124
    finally:
        if log:
            out.close()


def sources(windows, only):
    files = subprocess.check_output(["git", "ls-files", "kel", "modules"], cwd=ROOT, text=True).split()
    files = [f for f in files if f.endswith((".cpp", ".hpp"))]
    if only:
        files = [f for f in files if f in only]
    if windows:
        return [f for f in files if f.endswith(WINDOWS_ONLY) and f not in NOT_SAMPLED]
    return [f for f in files if not f.endswith(WINDOWS_ONLY)]


def changed_line(original, mutant):
    """(line number, original text, mutated text) of a mutant's one change."""
    a, b = open(original).read().splitlines(), open(mutant).read().splitlines()
    for tag, i1, i2, j1, j2 in difflib.SequenceMatcher(None, a, b, autojunk=False).get_opcodes():
        if tag != "equal":
            return i1 + 1, " / ".join(a[i1:i2]).strip(), " / ".join(b[j1:j2]).strip()
    return 0, "", ""


def worth_building(original, mutant):
    """False for changes to comments, blank or preprocessor lines, which cannot matter."""
    _, before, after = changed_line(original, mutant)
    return not (before.startswith(("//", "#", "/*", "*")) or (not before and after in ("break;", "continue;")))


def mutants_of_today(f):
    """The folder of the mutants of f as it is now: a changed file has new ones."""
    return f.replace("/", "__") + "." + hashlib.sha256(open(os.path.join(ROOT, f), "rb").read()).hexdigest()[:16]


def generate(part_dir, tool, files):
    """{file: [mutant paths]}, made once per version of each file."""
    table = {}
    for f in files:
        out = os.path.join(part_dir, "mutants", mutants_of_today(f))
        if not os.path.isdir(out):
            tmp = out + ".tmp"
            shutil.rmtree(tmp, ignore_errors=True)
            os.makedirs(tmp)
            sh(f"{tool} {os.path.join(ROOT, f)} cpp --noCheck --mutantDir {tmp}", cwd=tmp)
            os.rename(tmp, out)
        mutants = sorted(glob.glob(os.path.join(out, "*.mutant.*")),
                         key=lambda p: int(p.rsplit(".mutant.", 1)[1].split(".")[0]))
        table[f] = [m for m in mutants if worth_building(os.path.join(ROOT, f), m)]
    return table


def plan(table, size, seed):
    """Per file, its quota and its mutants in seeded order; quotas follow the files' shares."""
    total = sum(len(m) for m in table.values()) or 1
    rng = random.Random(seed)
    order = {}
    for f in sorted(table):
        mutants = list(table[f])
        rng.shuffle(mutants)
        quota = max(1, round(size * len(mutants) / total)) if mutants else 0
        order[f] = (quota, mutants)
    return order


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--sample", type=int, help="compiled mutants to run (default 200, Windows 30)")
    p.add_argument("--seed", type=int, default=20261124)
    p.add_argument("--shard", default="1/1", help="K/N: run the K-th of N slices of the files")
    p.add_argument("--timeout", type=int, default=600, help="seconds per mutant's suite")
    p.add_argument("--windows", action="store_true", help="the Windows-only files, under Wine")
    p.add_argument("--files", nargs="*", help="only these sources (paths from the repository top)")
    p.add_argument("--report-only", action="store_true", help="write the report from the results so far")
    p.add_argument("--rejudge", action="store_true", help="run the survivors so far again, against today's tests")
    a = p.parse_args()
    size = a.sample or (30 if a.windows else 200)
    k, n = (int(x) for x in a.shard.split("/"))
    part = "windows" if a.windows else "linux"
    part_dir = os.path.join(ROOT, "build-mutate", part)
    src, build = os.path.join(part_dir, "src"), os.path.join(part_dir, "build")
    results_path = os.path.join(part_dir, "results.jsonl")
    os.makedirs(part_dir, exist_ok=True)
    done = {}
    if os.path.exists(results_path):
        for line in open(results_path):
            r = json.loads(line)
            done[r["mutant"]] = r
    tool = os.environ["KEL_MUTATE_TOOL"]
    files = sources(a.windows, a.files)
    table = generate(part_dir, tool, files)
    order = plan(table, size, a.seed)
    planned = sum(quota for quota, _ in order.values())
    if a.report_only:
        report(part_dir, done, size, planned, a.seed)
        return
    mine = [f for i, f in enumerate(sorted(order)) if i % n == k - 1]

    # A copy of the tree, built once; each mutant then rebuilds what it touches.
    if not os.path.isdir(src):
        os.makedirs(src)
        tracked = subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).split("\n")
        for f in filter(None, tracked):
            os.makedirs(os.path.dirname(os.path.join(src, f)) or src, exist_ok=True)
            shutil.copy2(os.path.join(ROOT, f), os.path.join(src, f))
        shutil.copy2(os.path.join(ROOT, ".deps.cmake"), src)
    # The copy follows the tree as it is now: sources, tests and build files.
    for f in filter(None, subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).split("\n")):
        there = os.path.join(src, f)
        if not os.path.exists(there) or not filecmp.cmp(os.path.join(ROOT, f), there, shallow=False):
            os.makedirs(os.path.dirname(there), exist_ok=True)
            shutil.copy2(os.path.join(ROOT, f), there)
            os.utime(there)  # newer than what a mutant (or a stopped run) built from it
    if a.windows:
        configure = f"cmake -S {src} -B {build} -G Ninja -DCMAKE_TOOLCHAIN_FILE={src}/cmake/clang-cl-x86_64.cmake"
        suite = f"bash {src}/tests/windows/run.sh {build}"
    else:
        configure = f"cmake -S {src} -B {build} -G Ninja -DCMAKE_BUILD_TYPE=Release"
        # In the order the tests are declared, fast unit suites first, so a kill comes early.
        suite = f"rm -f Testing/Temporary/CTestCostData.txt && ctest -j 2 --stop-on-failure --timeout {a.timeout}"
    if sh(configure, log=os.path.join(part_dir, "configure.log")) != 0 or \
            sh(f"ninja -C {build}", log=os.path.join(part_dir, "build.log")) != 0:
        sys.exit(f"the unmutated copy does not build; see {part_dir}/build.log")
    baseline = os.path.join(part_dir, "baseline")
    if sh(suite, cwd=build, log=baseline + ".log") != 0:
        sys.exit(f"the suite fails on the unmutated copy; see {baseline}.log")
    objects = baseline_objects(build, part_dir, src)

    os.makedirs(os.path.join(part_dir, "logs"), exist_ok=True)
    today = {f: mutants_of_today(f) for f in mine}
    of_today = lambda r: r["file"] in today and r["mutant"].split("/")[1] == today[r["file"]]
    with open(results_path, "a") as results:
        if a.rejudge:  # survivors not equivalent by reason, first
            reasons = reasoned_equivalents()
            for r in [r for r in done.values() if r["status"] == "survived" and of_today(r)
                      and not any(k in reasons for k in reason_keys(r))]:
                run_mutant(r["file"], os.path.join(part_dir, r["mutant"]), a, part_dir, src, build, objects, suite,
                           done, results)
        taken = {f: sum(1 for r in done.values() if of_today(r) and r["file"] == f and r["status"] != "uncompiled")
                 for f in mine}
        pending = {f: [m for m in order[f][1] if os.path.relpath(m, part_dir) not in done] for f in mine}
        # Round by round, one more mutant of each file still under its quota, so that a campaign
        # stopped early has sampled every file alike.
        while True:
            progress = False
            for f in mine:
                while taken[f] < order[f][0] and pending[f]:
                    status = run_mutant(f, pending[f].pop(0), a, part_dir, src, build, objects, suite,
                                        done, results)
                    progress = True
                    if status != "uncompiled":
                        taken[f] += 1
                        break
            if not progress:
                break
    # Leave the copy built from the original sources.
    sh(f"ninja -C {build}")
    latest = {}
    for line in open(results_path):
        r = json.loads(line)
        latest[r["mutant"]] = r
    report(part_dir, latest, size, planned, a.seed)


def run_mutant(f, m, a, part_dir, src, build, objects, suite, done, results):
    """Builds and judges one mutant of `f`; records and returns its status."""
    key = os.path.relpath(m, part_dir)
    line, before, after = changed_line(os.path.join(ROOT, f), m)
    original = os.path.join(src, f)
    saved = open(original, "rb").read()
    started = time.time()
    shutil.copy2(m, original)
    os.utime(original)
    status = None
    # The objects built from f: its own, or for a header those of the sources that include it.
    # One of them compiles first, so that a mutant that does not compile costs one compilation;
    # when all come out byte-identical the mutant is equivalent.
    mine = objects.get(f, [])
    same = lambda: all(filecmp.cmp(o, saved, shallow=False) for o, saved in mine)
    try:
        if mine and sh(f"ninja -C {build} {os.path.relpath(mine[0][0], build)}") != 0:
            status = "uncompiled"
        elif f.endswith(".cpp") and mine and same():
            status = "equivalent"
        elif sh(f"ninja -C {build}") != 0:
            status = "uncompiled"
        elif mine and same():
            status = "equivalent"
        if status is None:
            rc = sh(f"timeout {a.timeout + 60} bash -c '{suite}'", cwd=build,
                    log=os.path.join(part_dir, "logs", key.replace("/", "__") + ".log"))
            status = "timeout" if rc == 124 else "killed" if rc != 0 else "survived"
    finally:
        open(original, "wb").write(saved)
        os.utime(original)
    r = {"mutant": key, "file": f, "line": line, "before": before, "after": after,
         "status": status, "seconds": round(time.time() - started, 1)}
    done[key] = r
    results.write(json.dumps(r) + "\n")
    results.flush()
    print(f"[mutate] {status:10} {f}:{line}  {after[:80]}", flush=True)
    return status


def baseline_objects(build, part_dir, src):
    """{source or header (repository path): [(library object built from it, its saved copy)]}."""
    saved_dir = os.path.join(part_dir, "objects")
    shutil.rmtree(saved_dir, ignore_errors=True)
    os.makedirs(saved_dir)
    objects = {}
    found = sorted(glob.glob(os.path.join(build, "CMakeFiles", "kel_internal.dir", "**", "*.o"), recursive=True))
    for i, o in enumerate(found):
        saved = os.path.join(saved_dir, f"{i}.o")
        shutil.copy2(o, saved)
        deps = subprocess.check_output(["ninja", "-C", build, "-t", "deps", os.path.relpath(o, build)], text=True)
        for line in deps.splitlines()[1:]:
            path = line.strip()
            if path.startswith(src + os.sep):
                objects.setdefault(os.path.relpath(path, src), []).append((o, saved))
    # A source's own object first; for a header, the smallest including source compiles first.
    for f, pairs in objects.items():
        pairs.sort(key=lambda pair: (not pair[0].endswith(f + ".o"), os.path.getsize(pair[0])))
    return objects


def reason_keys(r):
    """How mutate-equivalent.txt may name a mutant: its text, its line's, or both."""
    return [(r["file"], r["after"]), (r["file"], "was: " + r["before"]),
            (r["file"], "was: " + r["before"] + " => " + r["after"])]


def reasoned_equivalents():
    """{(file, mutated text): why it behaves as the original}, from mutate-equivalent.txt."""
    table = {}
    for line in open(os.path.join(ROOT, "scripts", "mutate-equivalent.txt")):
        if line.strip() and not line.startswith("#"):
            file, after, why = line.rstrip("\n").split("\t")
            table[(file, after)] = why
    return table


def report(part_dir, done, size, planned, seed):
    reasons = reasoned_equivalents()
    # Only mutants of the sources as they are now: a file that changed has new mutants.
    current = {f: mutants_of_today(f)
               for f in {r["file"] for r in done.values()} if os.path.exists(os.path.join(ROOT, f))}
    rows = [r for r in done.values()
            if r["mutant"].split("/")[1] == current.get(r["file"]) and r["file"] not in NOT_SAMPLED]
    for r in rows:
        why = next((reasons[k] for k in reason_keys(r) if k in reasons), None)
        if r["status"] == "survived" and why:
            r["status"], r["why"] = "equivalent", why
    count = {s: sum(1 for r in rows if r["status"] == s)
             for s in ("killed", "timeout", "survived", "equivalent", "uncompiled")}
    ran = count["killed"] + count["timeout"] + count["survived"]
    score = 100.0 * (count["killed"] + count["timeout"]) / ran if ran else 0.0
    lines = [f"# Mutation report ({os.path.basename(part_dir)}), {time.strftime('%Y-%m-%d')}", "",
             f"Sample: {size} compiled mutants asked for, seed {seed}; each file gets its share and at least "
             f"one, so the files' quotas come to {planned}.", "",
             "| killed | timed out | survived | equivalent (same object code, or by reason) | not compiled | score |",
             "|---|---|---|---|---|---|",
             f"| {count['killed']} | {count['timeout']} | {count['survived']} | {count['equivalent']} | "
             f"{count['uncompiled']} | {score:.1f} % of {ran} |", "", "## Survivors", ""]
    for r in sorted((r for r in rows if r["status"] == "survived"), key=lambda r: (r["file"], r["line"])):
        lines.append(f"- `{r['file']}:{r['line']}`: `{r['before']}` became `{r['after']}`")
    if os.path.basename(part_dir) == "windows":
        lines += ["", "## Not sampled", ""] + [f"- `{f}`: {why}" for f, why in NOT_SAMPLED.items()]
    lines += ["", "## Equivalent by reason (scripts/mutate-equivalent.txt)", ""]
    for r in sorted((r for r in rows if r.get("why")), key=lambda r: (r["file"], r["line"])):
        lines.append(f"- `{r['file']}:{r['line']}`: `{r['after']}`: {r['why']}")
    path = os.path.join(part_dir, "report.md")
    open(path, "w").write("\n".join(lines) + "\n")
    print("\n".join(lines[:8]))
    print(f"[mutate] report: {path}")


if __name__ == "__main__":
    main()
