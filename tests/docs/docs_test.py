"""Compiles, parses or runs every fenced block of the documents, and looks for the files and headings that they name.

Usage: scripts/realm docs_test.py SOURCES PROGRAMS. What a block's first line says, besides its language: "run" for one that is
run in the realm (with localhost in the place of server.example.org), "trial" for one that scripts/try-guide runs, and a reason
in brackets for one that cannot be run here. Text is no example.
"""
import os, pathlib, re, subprocess, sys, tempfile  # noqa: E401

SOURCES, PROGRAMS = pathlib.Path(sys.argv[1]), sys.argv[2]
ENVIRONMENT = {**os.environ, "PATH": PROGRAMS + ":" + os.environ["PATH"]}
SCRATCH = tempfile.TemporaryDirectory()
faults, count = [], {}


def do(where, command, text="", silent=False):
    done = subprocess.run(command, input=text, text=True, cwd=SOURCES, env=ENVIRONMENT, capture_output=True, timeout=60)
    if done.returncode != 0 or silent and done.stdout + done.stderr:
        faults.append(f"{where}: {done.stdout}{done.stderr}")


def unit(path):
    name = os.path.join(SCRATCH.name, path.name)
    with open(name, "w") as file:  # the program of the example is not installed
        file.write(re.sub(r"^ExecStart=.*", "ExecStart=/bin/true", path.read_text(), flags=re.M))
    do(path.name, ["systemd-analyze", "verify", name], silent=True)


COMPILE = ["-fsyntax-only", "-Wall", "-Wextra", "-Werror", "-Iinclude", "-"]
CHECKS = {"c": lambda where, text: do(where, ["gcc", "-std=c11", "-xc", *COMPILE], text),
          "cpp": lambda where, text: do(where, ["g++", "-std=c++17", "-xc++", *COMPILE], text),
          "python": lambda where, text: compile(text, where, "exec"),
          "sh": lambda where, text: do(where, ["bash", "-n"], text), "text": lambda where, text: None}


def block(where, info, text):
    language, _, more = info.partition(" ")
    how = "run" if more == "run" else more if more.startswith("trial") else "not run" if re.fullmatch(r"\(\w+ .+\)", more) else ""
    if language not in CHECKS or bool(how) != (language == "sh"):
        return faults.append(f"{where}: a block \"{info}\"")
    count[f"{language} {how}".strip()] = count.get(f"{language} {how}".strip(), 0) + 1
    CHECKS[language](where, text)
    if how == "run":
        do(where, ["bash", "-euo", "pipefail"], text.replace("server.example.org", "localhost"))


def document(path):
    text, name = path.read_text(), path.relative_to(SOURCES)
    for match in re.finditer(r"^```(.*)\n((?:(?!```).*\n)*)```$", text, re.M):
        block(f"{name}:{text.count(chr(10), 0, match.start()) + 1}", match[1], match[2])
    prose = re.sub(r"^```.*\n(?:(?!```).*\n)*```$", "", text, flags=re.M)
    faults.extend(f"{name}: code without a fence: {line}" for line in re.findall(r"\n\n(    .*)", prose))
    names = [path.parent / link.split("#")[0] for link in re.findall(r"\]\((?!https?:)([^)#]+)", prose)]
    names += [SOURCES / file for file in re.findall(
        r"`((?:cmake|docs|examples|include|packaging|platform|plugin|scripts|tests|tools)/[\w./-]*)[` ]", prose)]
    faults.extend(f"{name}: no file {file}" for file in names if not file.exists())
    for page, heading in re.findall(r"\]\((?!https?:)([^)#]*)#([^)]*)\)", prose):
        there = re.findall(r"^#+ (.*)", (path.parent / page if page else path).read_text(), flags=re.M)
        if heading not in [re.sub(r"[^\w -]", "", text.lower()).replace(" ", "-") for text in there]:
            faults.append(f"{name}: no heading {page}#{heading}")
    count["files"] = count.get("files", 0) + len(names)


for found in sorted([*SOURCES.glob("*.md"), *SOURCES.glob("docs/*.md"), *SOURCES.glob("tests/*.md"), *SOURCES.glob("examples/*/*.md")]):
    document(found)
unit(SOURCES / "examples/myserver.service")
print(count)
assert not faults, "\n".join(faults)
assert all(count.get(kind) for kind in ("c", "cpp", "sh run", "sh trial", "files")), count
