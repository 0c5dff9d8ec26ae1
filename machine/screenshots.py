"""Takes the pictures of the documents: each page, each question. Argument: the locale, such as ru_RU.UTF-8."""

import gettext
import os
import pathlib
import sys

import marking
import templates
from robot import MAIN, Tool, restore, shell, wait

LOCALE = sys.argv[1]
_ = gettext.translation("gtk-tarnel", "/usr/share/locale", [LOCALE], fallback=True).gettext
os.environ.update(LANG=LOCALE, LANGUAGE=LOCALE[:2])


def answer(tool, title, name, key="Escape"):
    """Takes a dialog's picture, and answers it with a key: Return presses the first button."""
    tool.wait_window(_(title))
    before = tool.find(window=_(title))
    tool.picture(f"out/{name}")
    tool.press(key)
    wait(lambda: tool.find(window=_(title)) != before, "the end of the dialog")


shell(f"mkdir -p {marking.OUT} /root/.local/share; echo not a report >/root/notes.txt")
tool = Tool()
answer(tool, "Warning", "no_board")
tool.wait_window(_(MAIN))
for path in marking.MARKED:
    tool.mark(*path)
tool.picture("out/files")
tool.push("files_default")
answer(tool, "Confirm", "default_question")
tool.push("files_save")
answer(tool, "Confirm", "save_question")
tool.push("tab_sectors")
tool.mark("/dev/sdb", tree="diskbrowser")
tool.expand("/dev/sda", tree="diskbrowser")
tool.expand(*next(item.text for item in tool.look() if "(/dev/sda2)" in item.text).split("\n"), tree="diskbrowser")
tool.expand("/dev/sdb", tree="diskbrowser")
tool.picture("out/sectors")
tool.push("sectors_clear")
answer(tool, "Confirm", "clear_question")
tool.press("alt+F4")
answer(tool, "Confirm", "exit_question")
for button, title, name in (("tab_info", MAIN, "information"), ("report_button", "Report", "report"),
                            ("report_save_button", "Save report", "save_report")):
    tool.push(button)
    tool.wait_window(_(title))
    tool.picture(f"out/{name}")
tool.press("ctrl+a", *"notes", "period", *"txt", "Return")
answer(tool, "Warning", "rewrite_question", "Return")
answer(tool, "Error", "not_a_report")
restore()

shell(marking.SMALL_VOLUME)
for kind, records in ((templates.FILES, [b"C:/boot/grub/removed.cfg", b"C:/etc/hostname", b"E:\\LOST.TXT"]),
                      (templates.SECTORS, [(0x80, 0), (0x80, 10240), (0x80, 999999999), (0x85, 63)])):
    for content, suffix in zip(templates.expected(kind, records, b"E:\\pelva\\"), ("nam", "chk")):
        pathlib.Path(marking.PELVA, f"{templates.NAMES[kind]}.{suffix}").write_bytes(content)
shell("mv /sbin/mount.ntfs-3g /sbin/mount.away")
tool = Tool(PELVADB=marking.PELVA)
for title, name in (("Confirm", "missing_files"), ("Warning", "no_ntfs"), ("Confirm", "missing_sectors"),
                    ("Warning", "no_board")):
    answer(tool, title, name)
tool.push("tab_sectors")
tool.picture("out/hidden_sectors")
shell(marking.FILL_UP)
tool.push("sectors_save")
answer(tool, "Confirm", "drops_question", "Tab Return")
answer(tool, "Error", "failed_save")
