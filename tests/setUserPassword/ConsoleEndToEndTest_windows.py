#!/usr/bin/env python3
"""End-to-end runs of KorvanePassword at a console, on a pseudo-terminal.

    tests/setUserPassword/ConsoleEndToEndTest_windows.py [--only <group>] <program> [runner ...]

Groups: typing, cancelling, removal, redirected-output, no-endless-loop,
names (all of them by default).

Every run gets a fresh installation (users.json, and passwords.json where
the run needs one), is started on a pseudo-terminal, and is typed at: the
password typed twice with editing keys, a mismatch, an empty entry, a weak
password refused, a weak password kept or not with
-DontRejectInsecurePasswords, cancelling with Escape and Ctrl+C, the removal
question, standard output redirected to a file while the prompts stay
on the console, and user names and a folder in several scripts shown with
their real characters.

With a runner (e.g. `wine`) the program is a Windows one and runs in Wine's
console. That console draws the screen late, so nothing is read from the
screen while typing: the keys of a prompt are sent after a pause, and the
results are read at the end, from the files, the exit status and the
output captured over the whole run. Without a runner the program runs
natively (used to check this script against the Linux build).

The passwords used are classified alike by zxcvbn and by the test
estimator (tests/strengthEstimator/). Exits non-zero when any check fails.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

import warnings

import pexpect

with warnings.catch_warnings():
    warnings.simplefilter("ignore", DeprecationWarning)
    import crypt  # pylint: disable=deprecated-module,wrong-import-position

ARGUMENTS = sys.argv[1:]
ONLY = None
if ARGUMENTS[:1] == ["--only"]:
    ONLY = ARGUMENTS[1]
    ARGUMENTS = ARGUMENTS[2:]
PROGRAM = ARGUMENTS[0]
RUNNER = ARGUMENTS[1:]
WINDOWS = bool(RUNNER)

ALICE = "3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b"
BOB = "8c9d0e1f-2a3b-4c5d-8e6f-7a8b9c0d1e2f"
LUKASZ = "a1000000-0000-4000-8000-000000000002"
NAMED = {"Łukasz": "a1000000-0000-4000-8000-000000000003",
         "山田": "a1000000-0000-4000-8000-000000000004",
         "Jürgen": "a1000000-0000-4000-8000-000000000001"}
STRONG = "Tangerine-Kettle-Orbit-47"
OTHER_STRONG = "Lantern-Quill-Harbour-82"
USERS_JSON = """{
  "users": [
    { "userName": "alice", "UUID": "3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b" },
    { "userName": "bob", "UUID": "8c9d0e1f-2a3b-4c5d-8e6f-7a8b9c0d1e2f" },
    { "userName": "Jürgen", "UUID": "a1000000-0000-4000-8000-000000000001" },
    { "userName": "Lukasz", "UUID": "a1000000-0000-4000-8000-000000000002" },
    { "userName": "Łukasz", "UUID": "a1000000-0000-4000-8000-000000000003" },
    { "userName": "山田", "UUID": "a1000000-0000-4000-8000-000000000004" }
  ]
}
"""

HEADER = 'Please enter the new password for user " alice".'
EMPTY = ('The password may not be empty. Please enter a password, or press '
         '"Ctrl+C" to exit.')
TOO_WEAK = ('The password you entered is too weak. Please enter a stronger '
            'password, or use the command line option '
            '"-DontRejectInsecurePasswords" to allow weak passwords.')
WEAK_QUESTION = ('The password you entered is too weak. Are you sure you want '
                 'to use it (y|N)? ')
ANSWER = 'Please answer "y" or "n", or press Return to accept the default of "n".'
MISMATCH = "The passwords do not match."

# Keys as a terminal sends them.
ENTER = "\r"
ESCAPE = "\x1b"
CTRL_C = "\x03"
BACKSPACE = "\x7f"
LEFT = "\x1b[D"
RIGHT = "\x1b[C"
HOME = "\x1b[H"
END = "\x1b[F"
DELETE = "\x1b[3~"

# Pauses: the program (under Wine: Wine itself) must have started, and each
# prompt must have put the console into raw mode, before keys for it come.
START_TIMEOUT = 60 if WINDOWS else 10
START_PAUSE = 5.0 if WINDOWS else 1.0
PROMPT_PAUSE = 1.0 if WINDOWS else 0.3
RUN_TIMEOUT = 90 if WINDOWS else 20
# Redirected output beyond this is a loop printing for ever.
OUTPUT_LIMIT = 64 * 1024

passed = 0
failed = 0


def check(description, condition, detail=""):
    global passed, failed  # pylint: disable=global-statement
    if condition:
        passed += 1
    else:
        failed += 1
        print(f"FAILED: {description}", file=sys.stderr)
        if detail:
            print(f"  {detail}", file=sys.stderr)


def program_path(path):
    """The program's view of a path."""
    if not WINDOWS:
        return path
    return subprocess.run(["winepath", "-w", path], check=True, capture_output=True,
                          text=True).stdout.strip()


class Installation:
    """A temporary folder with users.json and, optionally, passwords.json."""

    def __init__(self, root, name, passwords=None):
        self.dir = os.path.join(root, name)
        os.makedirs(self.dir)
        with open(self.users_path, "w", encoding="utf-8") as f:
            f.write(USERS_JSON)
        if passwords is not None:
            with open(self.passwords_path, "w", encoding="utf-8") as f:
                json.dump(passwords, f, indent=2)
        self.before = self.snapshot()

    @property
    def users_path(self):
        return os.path.join(self.dir, "users.json")

    @property
    def passwords_path(self):
        return os.path.join(self.dir, "passwords.json")

    def snapshot(self):
        """Every file of the folder with its content."""
        files = {}
        for name in sorted(os.listdir(self.dir)):
            with open(os.path.join(self.dir, name), "rb") as f:
                files[name] = f.read()
        return files

    def untouched(self):
        return self.snapshot() == self.before

    def hash_of(self, uuid):
        try:
            with open(self.passwords_path, encoding="utf-8") as f:
                return json.load(f).get(uuid)
        except (OSError, ValueError):
            return None

    def verifies(self, uuid, password):
        stored = self.hash_of(uuid)
        return (stored is not None and stored.startswith("$6$")
                and crypt.crypt(password, stored) == stored)


class Run:
    """One run of the program on a pseudo-terminal."""

    def __init__(self, arguments, stdout_file=None):
        command = [*RUNNER, PROGRAM, *arguments]
        if stdout_file is None:
            self.child = pexpect.spawn(command[0], command[1:], encoding="utf-8",
                                       codec_errors="replace", dimensions=(40, 200),
                                       timeout=RUN_TIMEOUT)
        else:
            quoted = " ".join(_quote(part) for part in command)
            self.child = pexpect.spawn("/bin/sh", ["-c", f"exec {quoted} >{_quote(stdout_file)}"],
                                       encoding="utf-8", codec_errors="replace",
                                       dimensions=(40, 200), timeout=RUN_TIMEOUT)
        self.first = True
        self.stdout_file = stdout_file

    def wait_for_start(self):
        """A pause for the program (under Wine: Wine itself) to start and
        show its first prompt. Not read from the screen: Wine's console may
        draw it only when keys arrive."""
        if self.stdout_file is not None:
            deadline = time.monotonic() + START_TIMEOUT
            while "Please enter" not in _read(self.stdout_file) and time.monotonic() < deadline:
                time.sleep(0.2)
            time.sleep(PROMPT_PAUSE)
        else:
            time.sleep(START_PAUSE)

    def type(self, *keys):
        """Sends the keys of one prompt, after a pause for the prompt."""
        if self.first:
            self.wait_for_start()
        else:
            time.sleep(PROMPT_PAUSE)
        self.first = False
        for key in keys:
            self.child.send(key)
            time.sleep(0.05)

    def line(self, text):
        self.type(text, ENTER)

    def finish(self):
        """Waits for the end; returns (exit status, captured screen text)."""
        try:
            if self.stdout_file is None:
                self.child.expect(pexpect.EOF)
            else:
                self._expect_end_watching_output()
        except pexpect.TIMEOUT:
            self.child.terminate(force=True)
            self.child.close()
            return None, self.child.before or ""
        output = self.child.before or ""
        self.child.close()
        return self.child.exitstatus, output

    def _expect_end_watching_output(self):
        """Waits for the end like expect(EOF), but gives up as soon as the
        redirected output grows beyond OUTPUT_LIMIT (a loop printing for ever).
        Text not matched stays in the buffer, so `before` holds it all."""
        deadline = time.monotonic() + RUN_TIMEOUT
        while True:
            try:
                self.child.expect(pexpect.EOF, timeout=0.5)
                return
            except pexpect.TIMEOUT:
                if _size(self.stdout_file) > OUTPUT_LIMIT or time.monotonic() > deadline:
                    raise

def _quote(text):
    return "'" + text.replace("'", "'\\''") + "'"


def screen_text(raw):
    """The captured output without escape sequences and carriage returns."""
    out = []
    i = 0
    while i < len(raw):
        c = raw[i]
        if c == "\x1b":
            i += 1
            if i < len(raw) and raw[i] == "[":
                i += 1
                while i < len(raw) and not ("@" <= raw[i] <= "~"):
                    i += 1
            elif i < len(raw) and raw[i] == "]":
                while i < len(raw) and raw[i] not in "\x07":
                    i += 1
            i += 1
            continue
        if c not in "\r":
            out.append(c)
        i += 1
    return "".join(out)


def flat(text):
    """Text without white space: screen lines may wrap, and Wine's console
    draws blanks as cursor movements."""
    return "".join(text.split())


def contains(screen, text):
    return flat(text) in flat(screen)


def count(screen, text):
    return flat(screen).count(flat(text))


def shown_times(screen, text, times):
    """The text was shown `times` times. Wine's console redraws parts of the
    screen, which can show a line again, so there it is at least `times`."""
    shown = count(screen, text)
    return shown >= times if WINDOWS else shown == times


def main():
    root = tempfile.mkdtemp(prefix="korvane-console-e2e.")
    groups = {"typing": typing, "cancelling": cancelling, "removal": removal,
              "redirected-output": redirected_output, "no-endless-loop": no_endless_loop,
              "names": names}
    if ONLY is not None and ONLY not in groups:
        print(f"unknown group {ONLY}; groups: {' '.join(groups)}", file=sys.stderr)
        return 2
    try:
        for name, group in groups.items():
            if ONLY in (None, name):
                group(root)
    finally:
        shutil.rmtree(root, ignore_errors=True)
    total = passed + failed
    print(f"console end-to-end: {passed}/{total} checks passed")
    return 0 if failed == 0 else 1


def start(installation, *options, stdout_file=None):
    return Run([*options, "-ConfigDir", program_path(installation.dir), "alice"],
               stdout_file=stdout_file)


OLD_HASH = crypt.crypt("Old-Password-Fern-19", crypt.mksalt(crypt.METHOD_SHA512))
EXISTING = {"$schema": "https://docs.korvane.com/korvane/schema-korvane-passwords.json",
            ALICE: OLD_HASH, BOB: OLD_HASH}


def typing(root):
    """The password typed twice, with editing keys, mismatch, empty and weak
    entries and the weak-password question."""
    # Editing keys in both entries: "angerine-Kettle-Orbit-4X", Backspace,
    # "7", Home, "T", End, Left, Left, Right, Right gives STRONG; so does
    # "...-47x", Left, Delete, Right.
    inst = Installation(root, "editing")
    run = start(inst)
    run.type("angerine-Kettle-Orbit-4X", BACKSPACE, "7", HOME, "T", END, LEFT, LEFT, RIGHT,
             RIGHT, ENTER)
    run.type("Tangerine-Kettle-Orbit-4", "7x", LEFT, DELETE, RIGHT, ENTER)
    status, screen = map_screen(run.finish())
    check("editing keys: exit 0", status == 0, screen[-800:])
    check("editing keys: the hash verifies", inst.verifies(ALICE, STRONG))
    check("editing keys: header once", shown_times(screen, HEADER, 1), screen[-800:])
    check("editing keys: prompts shown", contains(screen, "Password: ")
          and contains(screen, "Repeat password: "), screen[-800:])
    check("editing keys: masked echo", "*****" in screen and STRONG not in screen, screen[-800:])
    check("editing keys: success line", contains(screen, 'Password for user "alice" was updated.'))

    # name, options, lines typed, password stored, texts shown (times),
    # texts never shown.
    dont = ["-DontRejectInsecurePasswords"]
    cases = [
        ("mismatch", [], [STRONG, OTHER_STRONG, OTHER_STRONG, OTHER_STRONG], OTHER_STRONG,
         [(MISMATCH, 1), (HEADER, 1)], []),
        ("empty", [], ["", STRONG, STRONG], STRONG, [(EMPTY, 1)], []),
        ("weak refused", [], ["password", STRONG, STRONG], STRONG, [(TOO_WEAK, 1)],
         [WEAK_QUESTION]),
        ("weak, y", dont, ["abc", "Y", "abc"], "abc", [(WEAK_QUESTION, 1)], [TOO_WEAK]),
        ("weak, Return", dont, ["abc", "", STRONG, STRONG], STRONG,
         [(WEAK_QUESTION, 1), (HEADER, 1)], []),
        ("weak, other", dont, ["abc", "maybe", "n", STRONG, STRONG], STRONG,
         [(WEAK_QUESTION, 2), (ANSWER, 1)], []),
    ]
    for index, (name, options, lines, stored, shown, absent) in enumerate(cases):
        inst = Installation(root, f"typing-{index}", EXISTING)
        run = start(inst, *options)
        for text in lines:
            run.line(text)
        status, screen = map_screen(run.finish())
        check(f"{name}: exit 0", status == 0, f"status {status}: {screen[-800:]}")
        check(f"{name}: the password stored verifies", inst.verifies(ALICE, stored))
        check(f"{name}: bob untouched", inst.hash_of(BOB) == OLD_HASH)
        for text, times in shown:
            check(f"{name}: shown {times} time(s): {text[:30]}", shown_times(screen, text, times),
                  screen[-800:])
        for text in absent:
            check(f"{name}: never shown: {text[:30]}", not contains(screen, text))


def cancelling(root):
    """Cancelling at every prompt: status 1, no text, both files untouched."""
    cancels = [
        ("Escape at Password", [], [ESCAPE]),
        ("Escape at Repeat password", [STRONG + ENTER], [ESCAPE]),
        ("Escape after typing", [], ["abc", ESCAPE]),
        ("Escape at the weak question", ["abc" + ENTER], [ESCAPE]),
    ]
    # Wine's console ends the program on a typed Ctrl+C even in raw mode
    # instead of handing the key over, so only where that is not so.
    if not WINDOWS:
        cancels.append(("Ctrl+C at Password", [], ["abc", CTRL_C]))
    for name, lines, last in cancels:
        inst = Installation(root, "cancel-" + str(cancels.index((name, lines, last))), EXISTING)
        options = ["-DontRejectInsecurePasswords"] if "weak" in name else []
        run = start(inst, *options)
        for text in lines:
            run.type(text)
        run.type(*last)
        status, screen = map_screen(run.finish())
        check(f"{name}: exit 1", status == 1, f"status {status}: {screen[-800:]}")
        check(f"{name}: both files untouched", inst.untouched())
        check(f"{name}: no error text", "ERROR" not in screen, screen[-800:])



def removal(root):
    """The removal question: y removes, n, Return and Escape keep."""
    removals = [
        ("y", ["y"], 0),
        ("Y", ["Y"], 0),
        ("n", ["n"], 1),
        ("Return", [""], 1),
        ("other, then y", ["x", "y"], 0),
    ]
    remove_question = ('Are you sure you mant to remove the password for user "alice" '
                       '(y|N)? ')
    for name, answers, expected in removals:
        inst = Installation(root, "remove-" + str(removals.index((name, answers, expected))),
                            EXISTING)
        run = start(inst, "-Remove")
        for answer in answers:
            run.line(answer)
        status, screen = map_screen(run.finish())
        check(f"remove, {name}: exit {expected}", status == expected,
              f"status {status}: {screen[-800:]}")
        check(f"remove, {name}: asked {len(answers)} time(s)",
              shown_times(screen, remove_question, len(answers)), screen[-800:])
        if expected == 0:
            check(f"remove, {name}: alice removed, bob kept",
                  inst.hash_of(ALICE) is None and inst.hash_of(BOB) == OLD_HASH)
            check(f"remove, {name}: success line",
                  contains(screen, 'Password for user "alice" was removed.'))
        else:
            check(f"remove, {name}: both files untouched", inst.untouched())
    inst = Installation(root, "remove-escape", EXISTING)
    run = start(inst, "-Remove")
    run.type(ESCAPE)
    status, screen = map_screen(run.finish())
    check("remove, Escape: exit 1", status == 1, f"status {status}: {screen[-800:]}")
    check("remove, Escape: both files untouched", inst.untouched())


def redirected_output(root):
    """Standard output redirected to a file, standard input the console."""
    inst = Installation(root, "redirected")
    out_file = os.path.join(root, "redirected-stdout.txt")
    run = start(inst, stdout_file=out_file)
    run.line(STRONG)
    run.line(STRONG)
    status, screen = map_screen(run.finish())
    with open(out_file, encoding="utf-8", errors="replace") as f:
        lines = f.read().replace("\r", "").split("\n")
    users = program_path(inst.users_path)
    passwords = program_path(inst.passwords_path)
    expected = [f'Using user configuration file "{users}"',
                f'Will create new password file at "{passwords}"',
                "",
                HEADER,
                'Password for user "alice" was updated.',
                ""]
    check("redirected output: exit 0", status == 0, f"status {status}: {screen[-800:]}")
    check("redirected output: the password is set", inst.verifies(ALICE, STRONG))
    check("redirected output: the file holds the file lines, the header and the success "
          "line only", lines == expected, repr(lines[:8]))
    check("redirected output: the prompts are on the console",
          contains(screen, "Password: ") and contains(screen, "Repeat password: "),
          screen[-800:])
    check("redirected output: the masked echo is on the console", "*****" in screen)



def no_endless_loop(root):
    """The endless loop must not come back: with standard output redirected
    and nothing typed, the program waits at the console and its output file
    stays small. Bounded in time and in the size of the file."""
    inst = Installation(root, "loop")
    out_file = os.path.join(root, "loop-stdout.txt")
    run = start(inst, stdout_file=out_file)
    limit = OUTPUT_LIMIT
    deadline = time.monotonic() + START_TIMEOUT
    while "Please enter" not in _read(out_file) and time.monotonic() < deadline:
        if _size(out_file) > limit:
            break
        time.sleep(0.2)
    deadline = time.monotonic() + 5.0
    largest = _size(out_file)
    while time.monotonic() < deadline and run.child.isalive() and largest <= limit:
        time.sleep(0.2)
        largest = max(largest, _size(out_file))
    waiting = run.child.isalive() and largest <= limit
    if waiting:
        run.child.send(ESCAPE)
        status, screen = map_screen(run.finish())
    else:
        run.child.terminate(force=True)
        run.child.close()
        status = None
    largest = max(largest, _size(out_file))
    check("redirected output, nothing typed: the program waits for a key", waiting,
          f"status {status}, file {largest} bytes")
    check("redirected output, nothing typed: the file stays small (no loop)",
          largest < 4096, f"{largest} bytes")
    check("redirected output, nothing typed: Escape ends with status 1", status == 1,
          f"status {status}")
    check("redirected output, nothing typed: no empty-password text",
          EMPTY not in _read(out_file))


def names(root):
    """User names and a folder in several scripts at the console: the file
    lines, the header and the success line show their real characters, and
    each name sets its own entry ("Łukasz" never "Lukasz")."""
    for index, (name, uuid) in enumerate(NAMED.items()):
        inst = Installation(root, f"配置-Łódź-{index}")
        run = Run(["-ConfigDir", program_path(inst.dir), name])
        run.line(STRONG)
        run.line(STRONG)
        status, screen = map_screen(run.finish())
        check(f"{name}: exit 0", status == 0, f"status {status}: {screen[-800:]}")
        check(f"{name}: its own entry verifies", inst.verifies(uuid, STRONG))
        check(f"{name}: no other entry set", inst.hash_of(LUKASZ) is None
              and inst.hash_of(ALICE) is None)
        check(f"{name}: the folder shown as it is",
              contains(screen, f'Using user configuration file "{program_path(inst.users_path)}"'),
              screen[-800:])
        check(f"{name}: the header shows the name",
              shown_times(screen, f'Please enter the new password for user " {name}".', 1),
              screen[-800:])
        check(f"{name}: the success line shows the name",
              contains(screen, f'Password for user "{name}" was updated.'), screen[-800:])


def _size(path):
    try:
        return os.path.getsize(path)
    except OSError:
        return 0


def _read(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            return f.read()
    except OSError:
        return ""


def map_screen(result):
    status, raw = result
    return status, screen_text(raw)


if __name__ == "__main__":
    sys.exit(main())
