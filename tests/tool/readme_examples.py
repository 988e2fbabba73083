"""Runs the command-line tool's examples exactly as README.md writes them.

Usage: readme_examples.py README MESSAGES TOOL_DIR WORK_DIR

In the README's tool section (from the heading "## The `previewbokeh`
command-line tool" to the next "## " heading):
- every line of every ```sh block is run with bash, in order, in WORK_DIR,
  with TOOL_DIR first on PATH, and must exit 0; a block that follows the line
  "<!-- not run: REASON -->" is skipped (building instructions);
  a `previewbokeh view` command starts a server: it must print its address,
  and then stops on SIGINT with status 0;
- then, in the same directory, every row of the table under "### Messages
  and exit statuses" in MESSAGES (columns Message | Exit | Example) whose
  example is a command is run: it must exit with that status and print that
  message, where `<...>` stands for any text.
"""
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
from pathlib import Path

SECTION = "## The `previewbokeh` command-line tool"
TABLE = "### Messages and exit statuses"


def tool_section(readme: str) -> list[str]:
    lines = readme.splitlines()
    start = lines.index(SECTION)
    end = next((i for i in range(start + 1, len(lines)) if lines[i].startswith("## ")), len(lines))
    return lines[start:end]


def example_commands(section: list[str]) -> list[str]:
    commands, block, skip, pending = [], None, False, ""
    for i, line in enumerate(section):
        if block is None:
            if line.strip() == "```sh":
                block = []
                skip = i > 0 and section[i - 1].startswith("<!-- not run")
            continue
        if line.strip() == "```":
            if not skip:
                commands.extend(block)
            block = None
            continue
        text = pending + line.strip()
        if text.endswith("\\"):
            pending = text[:-1] + " "
            continue
        pending = ""
        if text and not text.startswith("#"):
            block.append(text)
    return commands


def message_rows(section: list[str]) -> list[tuple[str, int, str | None]]:
    rows, inside = [], False
    for line in section:
        if line.startswith("### "):
            inside = line.strip() == TABLE
            continue
        if not inside or not line.startswith("|") or set(line) <= set("|-: "):
            continue
        cells = [c.strip() for c in line.strip().strip("|").split(" | ")]
        if len(cells) != 3 or cells[1] == "Exit":
            continue
        message = re.match(r"`([^`]*)`", cells[0]).group(1)
        example = cells[2][1:-1] if cells[2].startswith("`") and cells[2].endswith("`") else None
        rows.append((message, int(cells[1]), example))
    return rows


def message_regex(message: str) -> re.Pattern:
    parts = re.split(r"<[^>]*>", message)
    return re.compile(".*".join(re.escape(p) for p in parts))


def is_view(command: str) -> bool:
    words = shlex.split(command, comments=True)
    return "previewbokeh" in words and "view" in words[words.index("previewbokeh"):]


def run_view(command: str, env: dict, cwd: Path) -> str | None:
    proc = subprocess.Popen(["bash", "-c", "exec " + command], cwd=cwd, env=env, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    try:
        line = proc.stdout.readline()
        if "http://" not in line:
            proc.kill()
            return f"printed no address: {line!r}"
        proc.send_signal(signal.SIGINT)
        status = proc.wait(timeout=30)
        return None if status == 0 else f"exit {status} after SIGINT"
    finally:
        if proc.poll() is None:
            proc.kill()


def main() -> int:
    readme, messages = Path(sys.argv[1]), Path(sys.argv[2])
    tool_dir, work = os.path.abspath(sys.argv[3]), Path(sys.argv[4])
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    env = {k: v for k, v in os.environ.items() if not k.startswith("PERSIST_VENDOR_CAM_PREBOKEH")}
    env["PATH"] = tool_dir + os.pathsep + env.get("PATH", "")
    section = tool_section(readme.read_text())
    failures = 0
    commands = example_commands(section)
    for command in commands:
        if is_view(command):
            problem = run_view(command, env, work)
        else:
            r = subprocess.run(["bash", "-c", command], cwd=work, env=env, text=True,
                               capture_output=True, timeout=300)
            problem = None if r.returncode == 0 else f"exit {r.returncode}\n{r.stdout}{r.stderr}"
        print(("FAILED " if problem else "ok     ") + command)
        if problem:
            print("   ", problem)
            failures += 1
    rows = message_rows(messages.read_text().splitlines())
    for message, status, example in rows:
        if example is None:
            continue
        r = subprocess.run(["bash", "-c", example], cwd=work, env=env, text=True,
                           capture_output=True, timeout=300)
        ok = r.returncode == status and message_regex(message).search(r.stdout + r.stderr)
        print(("ok     " if ok else "FAILED ") + example)
        if not ok:
            print(f"    expected exit {status} and '{message}'; got exit {r.returncode}: {r.stdout}{r.stderr}")
            failures += 1
    if not commands or not rows:
        print(f"FAILED: found {len(commands)} example commands and {len(rows)} message rows")
        failures += 1
    run = sum(1 for row in rows if row[2] is not None)
    print(f"{len(commands)} examples, {run} messages checked ({len(rows) - run} without an example), "
          f"{failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
