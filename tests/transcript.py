#!/usr/bin/env python3
"""Compares what a script made the simulated device do with the transcript beside the script.

    transcript.py AGENT SCRIPT.capi [ARGUMENT...]
    transcript.py --journal JOURNAL SCRIPT.capi     of a script that has run

The transcript is SCRIPT.expected. With UPDATE=1 in the environment it is written instead.

A transcript has a section for each thread, since only the order within a thread is the same in every run:
the commands, the session client's reports, the shell tools and each worker; and what was printed. Addresses,
numbers of threads and source lines, and what depends on time are taken out.
"""
import difflib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ENTRY = re.compile(r"\d\d-\d\d [\d:.]+ +(\d+) (\w+) +(.*)")
# Polling takes as many rounds as the machine needs, and either end of a link may be the first to close it.
DROPPED = re.compile(r"E/: (Obtained session ID 0|Received service name +.n|Waiting for session ID.n)$|"
                     r"(sink|source): (closed$|lost |.* does not answer yet)")
NORMALISED = [
    (re.compile(r"0x[0-9a-f]{9,}"), "0xADDRESS"),
    (re.compile(r"\b[0-9]{12,}\b"), "ADDRESS"),
    (re.compile(r"(miracastSigma/\S+):\d+"), r"\1:LINE"),
    (re.compile(r"\bport (Num = )?[1-9]\d{4}\b"), r"port \1PORT"),
    (re.compile(r"(_tcp|:|\(null\),)[ :]?[1-9]\d{4}\b"), r"\1 PORT"),
    (re.compile(r"(argv\[5\] =|accept returns) \d+"), r"\1 NUMBER"),
]


def transcript(journal, printed):
    threads, commands, reports, tools = {}, [], [], []
    for line in journal.splitlines():
        thread, component, text = ENTRY.fullmatch(line).groups()
        for pattern, replacement in NORMALISED:
            text = pattern.sub(replacement, text)
        if not DROPPED.match(text):
            threads.setdefault(thread, []).append(text if component == "capi" else f"    {component:10} {text}")
    workers = []
    for entries in threads.values():
        if any(not entry.startswith(" ") for entry in entries):
            commands += entries
        elif entries[0].startswith("    report"):
            reports += entries  # a thread lives as long as there is something to report
        elif entries[0].startswith("    tool"):
            tools += sorted(entries)  # of several threads
        elif "MDnsDS" not in entries[0]:  # the channel's monitor sees what the network does
            workers.append("\n".join(entries))
    sections = ["== commands", *commands, "== reports", *reports, "== shell tools", *tools]
    for worker in sorted(workers):
        sections += ["== worker", worker]
    for name, text in printed.items():
        sections += [f"== {name}", *(line for line in text.splitlines() if line not in commands)]
    return "\n".join(sections) + "\n"


def run(agent, script, *arguments):
    with tempfile.TemporaryDirectory() as directory:
        journal = pathlib.Path(directory, "journal")
        ended = subprocess.run([agent, "--time-scale", "20", "--journal", journal, script, *arguments],
                               capture_output=True, text=True, check=False)
        if ended.returncode != 0:
            sys.exit(ended.stdout + ended.stderr)
        return transcript(journal.read_text(), {"standard output": ended.stdout, "standard error": ended.stderr})


def main(agent, script, *arguments):
    if agent == "--journal":
        found, script = transcript(pathlib.Path(script).read_text(), {}), arguments[0]
    else:
        found = run(agent, script, *arguments)
    expected = pathlib.Path(script).with_suffix(".expected")
    if os.environ.get("UPDATE"):
        expected.write_text(found)
    wanted = expected.read_text()
    sys.stdout.writelines(difflib.unified_diff(
        wanted.splitlines(True), found.splitlines(True), str(expected), "this run"))
    return 0 if wanted == found else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
