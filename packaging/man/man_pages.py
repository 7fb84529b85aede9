"""Writes the man pages from what is there already: one of each exported function from the comments of the public headers,
that of morwen-doctor from docs/doctor.md and from what the program itself says of its options, and morwen(7) from docs/README.md.

Usage: man_pages.py VERSION FOLDER [--headers HEADER...] [--doctor PROGRAM DOCUMENT] [--overview DOCUMENT]. A function without a
comment fails.
"""
import argparse
import os
import pathlib
import re
import subprocess
import time


def escape(text):
    """Text as roff shows it; a dot or a quote that begins a line would be a request."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^(?=[.'])", r"\\&", text, flags=re.M)


def literal(text):
    return ".PP\n.RS 4\n.nf\n" + escape(text.rstrip()) + "\n.fi\n.RE\n"


def write(folder, name, section, about, version, parts):
    """A page of (heading, roff) parts; parts without text are left out."""
    day = time.strftime("%Y-%m-%d", time.gmtime(int(os.environ.get("SOURCE_DATE_EPOCH", time.time()))))
    page = f'.TH {name.upper()} {section} {day} "morwen {version}"\n.SH NAME\n{escape(name)} \\- {escape(about)}\n'
    page += "".join(f".SH {heading.upper()}\n{text.strip()}\n" for heading, text in parts if text)
    page = re.sub(r"(\n\.SH .*\n)\.PP\n", r"\1", page)
    (folder / f"{name}.{section}").write_text(page, encoding="utf-8")


# ---- the headers

def words(comment):
    """A C comment's text: its paragraphs, with numbered points apart."""
    lines = [re.sub(r"^ ?\*? ?", "", line) if i else line for i, line in enumerate(comment.splitlines())]
    text = re.sub(r"^ +(?=\S)", "", "\n".join(line.rstrip() for line in lines), flags=re.M)
    return re.sub(r"\n(?=\d\. )", "\n\n", text).strip()


def prose(text):
    return re.sub(r"\n\n+", "\n.PP\n", escape(text))


def functions(text):
    """(name, prototype, comment) of each exported function."""
    found = []
    for match in re.finditer(r"^(?:SSO_API|HARROW_LOG_API) ([^;]+?\b(\w+)\([^;]*\);)", text, re.M):
        before = text[:match.start()]
        comment = re.search(r"/\*(?:(?!\*/).)*\*/\n\Z", before, re.S)
        if not comment:
            raise SystemExit(f"man_pages: {match.group(2)} has no comment")
        found.append((match.group(2), re.sub(r"\s+", " ", match.group(1)), words(comment.group()[3:-4])))
    return found


def prototype(text):
    """One parameter a line, so that no terminal has to break it."""
    head, arguments = text.split("(", 1)
    return head + "(" + ",\n    ".join(arguments.split(", "))


def header_pages(folder, version, headers):
    for path in headers:
        text = path.read_text(encoding="utf-8")
        found = functions(text)
        begin = text.index("/*") + 3
        title, _, rest = words(text[begin:text.index("*/")]).partition("\n\n")
        include = f"#include <morwen/{path.name}>"
        block = re.search(r"^enum SSOCode {\n(.*?)^};", text, re.M | re.S)
        codes = "".join(f".TP\n.B {name} ({value})\n{escape(about)}\n" for name, value, about in
                        re.findall(r"^    (\w+) = (\d+),? +/\* (.*?) \*/", block.group(1) if block else "", re.M))
        for name, declared, comment in found:
            about = re.split(r"(?<=[a-z])[.;](?=\s|$)", comment)[0].replace("\n", " ")
            write(folder, name, 3, about[0].lower() + about[1:], version, [
                ("Synopsis", literal(include + "\n\n" + prototype(declared))),
                ("Description", prose(comment)),
                ("Return value", codes and "See the list in\n.BR morwenplugin (3).\nAfter a code of SSO_DENIED (3) or above\n"
                 ".BR SSOGetError (3)\nsays what happened, unless the text says that there is no record."),
                ("See also", f".BR {path.stem} (3)")])
        # What is declared beside the functions, with its comments, stands in the page of the header as it is.
        last = re.search(r"^(?:SSO_API|HARROW_LOG_API) ", text, re.M).start()
        declared = text[text.index('extern "C" {\n#endif') + 19:text.rindex("/*", 0, last)].strip()
        write(folder, path.stem, 3, re.sub(r"\s+", " ", title.split("\n\n")[0].split(": ", 1)[1]).rstrip("."), version, [
            ("Synopsis", literal(include)),
            ("Description", prose(rest)),
            ("Codes", codes),
            ("Declarations", literal(declared)),
            ("Functions", ",\n.br\n".join(f".BR {name} (3)" for name, _, _ in found))])


# ---- the command

def markdown(text):
    """The Markdown that our documents use: headings, paragraphs, tables of two or three columns, fenced code, code and links in a line."""
    def inline(line):
        line = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", line)
        return "".join(f"\\fB{escape(part)}\\fR" if i % 2 else escape(part) for i, part in enumerate(line.split("`")))
    roff = ""
    for block in re.split(r"\n\n+", text.strip()):
        if block.startswith("### "):
            roff += f'.SS "{inline(block[4:])}"\n'
        elif block.startswith("## "):
            roff += f'.SH "{inline(block[3:]).upper()}"\n'
        elif block.startswith("```"):
            roff += literal(block.split("\n", 1)[1].removesuffix("```"))
        elif block.startswith("| "):
            names, _, *rows = [[cell.strip() for cell in line.strip("| ").split(" | ")] for line in block.splitlines()]
            for first, second, *third in rows:
                roff += f".TP\n{inline(first)}\n{inline(second)}\n" + "".join(f".br\n{names[2]}: {inline(cell)}\n" for cell in third)
        else:
            roff += ".PP\n" + re.sub(r"^(?=[.'])", r"\\&", inline(block), flags=re.M) + "\n"
    return re.sub(r'(\.S[SH] ".*"\n)\.PP\n', r"\1", roff)


def doctor_page(folder, version, program, document):
    def said(*command):
        # Apart from the usage line, which shows the program's path here.
        text = subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True).stdout
        return re.sub(r"^Usage: \S*?morwen-doctor", "Usage: morwen-doctor", text, flags=re.M)
    text = document.read_text(encoding="utf-8").split("\n", 1)[1]
    begin, rest = text.split("\n## ", 1)
    options = "".join(f'.SS "{command}"\n' + literal(said(command)).replace(".PP\n", "")
                      for command in ("client", "server", "login", "accept", "findings"))
    write(folder, "morwen-doctor", 1, "says what is wrong with a Kerberos set-up, and what to do about it", version, [
        ("Synopsis", ".B morwen\\-doctor\n.I COMMAND\n.RI [ OPTIONS ]"),
        ("Description", markdown(begin).removeprefix(".PP\n")),
        ("Options", options)])
    page = folder / "morwen-doctor.1"
    page.write_text(page.read_text(encoding="utf-8") + markdown("## " + rest) + ".SH SEE ALSO\n.BR kinit (1),\n"
                    ".BR klist (1),\n.BR krb5.conf (5),\n.BR morwen (7)\n", encoding="utf-8")


def overview_page(folder, version, document):
    text = document.read_text(encoding="utf-8").split("\n", 1)[1]
    begin, rest = text.split("\n## ", 1)
    write(folder, "morwen", 7, "single sign-on with Kerberos: what there is, and where to read on", version, [
        ("Description", markdown(begin).removeprefix(".PP\n"))])
    page = folder / "morwen.7"
    page.write_text(page.read_text(encoding="utf-8") + markdown("## " + rest) + ".SH SEE ALSO\n.BR morwen\\-doctor (1),\n"
                    ".BR morwenplugin (3),\n.BR krb5.conf (5)\n", encoding="utf-8")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("version")
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--headers", nargs="*", type=pathlib.Path, default=[])
    parser.add_argument("--doctor", nargs=2, type=pathlib.Path)
    parser.add_argument("--overview", type=pathlib.Path)
    arguments = parser.parse_args()
    arguments.folder.mkdir(parents=True, exist_ok=True)
    header_pages(arguments.folder, arguments.version, arguments.headers)
    if arguments.doctor:
        doctor_page(arguments.folder, arguments.version, *arguments.doctor)
    if arguments.overview:
        overview_page(arguments.folder, arguments.version, arguments.overview)


main()
