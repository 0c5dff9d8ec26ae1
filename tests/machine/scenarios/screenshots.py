"""Takes the pictures of the documents: each page, each question. Argument: the locale, such as ru_RU.UTF-8."""

import gettext
import glob
import os
import sys

import faults
import marking
import templates
from robot import MAIN, SHARE, TEMPLATES, Tool, restore, shell, wait

LOCALE = sys.argv[1]
_ = gettext.translation("gtk-tarnel", "/usr/share/locale", [LOCALE], fallback=True).gettext


class Camera(Tool):
    """A tool in the language of the pictures."""

    def __init__(self, **environment):
        super().__init__(LANG=LOCALE, LANGUAGE=LOCALE[:2], **environment)

    def show_dialog(self, title, name, button=None):
        """Takes a dialog's picture and answers it: with the n-th button from the left, or with Escape."""
        look = self.wait_window(_(title))
        if name:
            self.picture(f"out/{name}")
        if button is None:
            self.press("Escape")
        else:
            buttons = [widget for widget in look.widgets if widget.window == _(title) and widget.kind == "GtkButton"]
            self.click(sorted(buttons, key=lambda widget: widget.x)[button])
        if name != "exit_question":
            wait(lambda: self.look().window(_(title)) != look.window(_(title)), "the end of the dialog")

    def begin(self):
        self.wait_window(_("Warning"))
        self.press("Escape")
        self.wait_window(_(MAIN))

    def page(self, name):
        self.click(self.look().widget(f"tab_{name}"))

    def question(self, widget, name):
        self.click(self.look().widget(widget))
        self.show_dialog("Confirm", name)

    def finish(self):
        self.press("alt+F4")
        self.wait_end()
        restore()


def pages():
    with open("/root/notes.txt", "w", encoding="ascii") as notes:
        notes.write("not a report")
    os.makedirs("/root/.local/share", exist_ok=True)
    tool = Camera()
    tool.show_dialog("Warning", "no_board")
    tool.wait_window(_(MAIN))
    kernel = os.path.basename(glob.glob("/boot/vmlinuz-*")[0])
    for tree in (["/dev/sdb1", "boot", kernel], ["/dev/sda3", "Program Files", "Trusted Loader", "loader configuration.ini"]):
        for depth in range(1, len(tree)):
            tool.expand(*tree[:depth])
        tool.mark("filebrowser", *tree)
    tool.picture("out/files")
    tool.question("files_save", "save_question")
    tool.question("files_default", "default_question")
    tool.page("sectors")
    wait(lambda: tool.look().widget("sectors_clear"), "the page of sectors")
    for disk in ("/dev/sda", "/dev/sdb"):
        tool.expand(disk, tree="diskbrowser")
    extended = next(text for row in tool.look().rows for text in row.texts if "(/dev/sda2)" in text)
    tool.expand("/dev/sda", extended, tree="diskbrowser")
    tool.mark("diskbrowser", "/dev/sdb")
    tool.picture("out/sectors")
    tool.question("sectors_clear", "clear_question")
    tool.page("info")
    wait(lambda: tool.look().widget("label_version"), "the page")
    tool.picture("out/information")
    tool.click(tool.look().widget("report_button"))
    tool.wait_window(_("Report"))
    tool.picture("out/report")
    tool.click(tool.look().widget("report_save_button"))
    tool.wait_window(_("Save report"))
    tool.picture("out/save_report")
    tool.enter("/root/notes.txt")
    tool.show_dialog("Warning", "rewrite_question", 0)
    tool.show_dialog("Error", "not_a_report")
    tool.press("Escape")
    tool.wait_closed(_("Save report"))
    tool.click(tool.look().widget("report_close_button"))
    tool.wait_closed(_("Report"))
    tool.press("alt+F4")
    tool.show_dialog("Confirm", "exit_question", 1)
    tool.wait_end()
    restore()


def missing():
    files = [b"C:/boot/grub/removed.cfg", b"C:/etc/hostname", b"E:\\LOST.TXT"]
    sectors = [(0x80, 0), (0x80, 999999999), (0x85, 63)]
    for kind, records, name in ((templates.FILES, files, "bootfile"), (templates.SECTORS, sectors, "bootsect")):
        for content, suffix in zip(templates.expected(kind, records, "C:/boot/pelva/"), ("nam", "chk")):
            with open(f"{TEMPLATES}/{name}.{suffix}", "wb") as file:
                file.write(content)
    tool = Camera()
    tool.show_dialog("Confirm", "missing_files")
    tool.show_dialog("Confirm", "missing_sectors")
    tool.begin()
    tool.finish()


def failures():
    shell(f"mkdir -p /mnt/fat && mount -t vfat /dev/sda1 /mnt/fat && mkdir -p {faults.PELVA}")
    os.rename("/sbin/mount.ntfs-3g", "/sbin/mount.away")
    tool = Camera(PELVADB=faults.PELVA)
    tool.show_dialog("Warning", "no_ntfs")
    tool.begin()
    marking.open_page(tool, "sectors")
    faults.fill_up()
    tool.click(tool.look().widget("sectors_save"))
    tool.show_dialog("Confirm", None, 0)
    tool.show_dialog("Error", "failed_save")
    tool.finish()
    os.rename("/sbin/mount.away", "/sbin/mount.ntfs-3g")


os.makedirs(f"{SHARE}/out", exist_ok=True)
for scene in (pages, missing, failures):
    scene()
    print(scene.__name__, flush=True)
