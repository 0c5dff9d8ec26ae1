"""From the mark to the template: what a user marks, saves and reports."""

import glob
import os
import shutil
import subprocess

import templates
from robot import SHARE, TEMPLATES, Tool, check, check_equal, shell, wait

OUT = f"{SHARE}/out"
DRIVES = {"sdb": 0x80, "md0": 0x81, "sda": 0x82, "sdc": 0x83, "sdg": 0x84}
# In the order of the rows: a partition table's sector, then what lies in it.
BOOT_SECTORS = ["sdb1", "md0p1", "md0p2", "sda1", "sda2", "sda5", "sda6", "sda3", "sdc2", "sdc3"]


def volume(name):
    """Where the tool has mounted a partition."""
    return glob.glob(f"/tmp/tarnel*/{name}")[0]


def all_sectors():
    records = []
    for disk, drive in DRIVES.items():
        records.append((drive, 0))
        for name in BOOT_SECTORS:
            if name.startswith(disk):
                with open(f"/sys/class/block/{name}/start", encoding="ascii") as start:
                    records.append((drive, int(start.read())))
    return records


def save(tool, page, count):
    tool.click(tool.look().widget(f"{page}_save"))
    tool.answer("Confirm", "Do you really want to overwrite existing template?", "Yes")
    check_equal(tool.look().widget(f"total_{page}_selected").text, str(count), f"number of {page}")


def demonstration():
    """A kernel on ext4, a long-named file on FAT32 and all boot sectors are marked, saved and reported"""
    os.makedirs(OUT, exist_ok=True)
    os.makedirs("/root/.local/share", exist_ok=True)  # where the file chooser remembers what was used
    tool = Tool()
    tool.start()
    kernel = os.path.basename(glob.glob("/boot/vmlinuz-*")[0])
    path = ["Program Files", "Trusted Loader", "loader configuration.ini"]
    for tree in (["/dev/sdb1", "boot", kernel], ["/dev/sda3", *path]):
        for depth in range(1, len(tree)):
            tool.expand(*tree[:depth])
        tool.mark("filebrowser", *tree)
    tool.picture("out/files")
    size = os.path.getsize("/".join([volume("sda3"), *path]))
    save(tool, "files", 2)

    open_page(tool, "sectors")
    tool.click(tool.look().widget("sectors_default"))
    tool.answer("Confirm", "Do you really want to set default selection?", "Yes")
    save(tool, "sectors", len(all_sectors()))
    tool.picture("out/sectors")

    tool.click(tool.look().widget("report_button"))
    tool.wait_window("Report")
    tool.picture("out/report")
    tool.click(tool.look().widget("report_save_button"))
    tool.wait_window("Save report")
    tool.press("Return")  # the name and the folder that it proposes
    tool.wait_closed("Save report")
    tool.press("Escape" if tool.look().window("Save report") else "alt+F4")
    tool.wait_closed("Report")
    tool.quit()

    with open("/root/report.rtf", encoding="cp1251") as report:
        text = report.read()
    check("\nFile: sda3:\\\\" + "\\\\".join(path) + f", file size: {size}\\line\n" in text, f"the report: {text}")
    check_equal(templates.read(templates.SECTORS, TEMPLATES),
                templates.expected(templates.SECTORS, all_sectors(), "C:/boot/pelva/"), "sectors")
    shutil.copy("/root/report.rtf", OUT)
    for file in glob.glob(f"{TEMPLATES}/*"):
        shutil.copy(file, OUT)
    with open(f"{OUT}/listing.txt", "w", encoding="utf-8") as file:
        subprocess.run(["tarnel-list", TEMPLATES], stdout=file, check=True, timeout=30)


def open_page(tool, page):
    tool.click(tool.look().widget(f"tab_{page}"))
    wait(lambda: tool.look().widget(f"{page}_save"), f"the page of {page}")


def questions():
    """A missing file is listed, and dropped on Yes; behind each of its questions the file chooser comes back in front"""
    for name, content in zip(("nam", "chk"), templates.expected(templates.FILES, [b"C:/etc/gone"], "C:/boot/pelva/")):
        with open(f"{TEMPLATES}/bootfile.{name}", "wb") as file:
            file.write(content)
    os.makedirs("/root/.local/share", exist_ok=True)
    with open("/root/notes.txt", "w", encoding="ascii") as notes:
        notes.write("not a report")
    os.symlink("nowhere.rtf", "/root/dangling.rtf")
    tool = Tool()
    check("/etc/gone\n" in tool.wait_window("Confirm").texts("Confirm"), "the missing file is not listed")
    tool.answer("Confirm", "The following files are missing. Delete these files from a template?", "Yes")
    tool.start()
    check_equal(templates.read(templates.FILES, TEMPLATES), templates.expected(templates.FILES, [], "C:/boot/pelva/"), "files")
    tool.click(tool.look().widget("report_button"))
    tool.wait_window("Report")
    tool.click(tool.look().widget("report_save_button"))
    tool.wait_window("Save report")
    for name, title, text, button in (
            ("notes.txt", "Warning", "File «notes.txt» already exists. Rewrite it?", "No"),
            ("dangling.rtf", "Error", "Cannot write file «dangling.rtf»: No such file or directory", "OK")):
        tool.enter(name)
        tool.answer(title, text, button)
        wait(lambda: shell("xdotool getactivewindow getwindowname") == "Save report\n", "the chooser with the focus", 10)
        check(name in tool.look().texts("Save report"), f"the chooser has lost the name {name}")
    tool.picture("save_as")
    tool.press("ctrl+a", "n", "period", "r", "t", "f")
    look = tool.look()  # a click reaches what is in front
    tool.click(next(item for item in look.widgets if item.window == "Save report" and item.text == "Save"))
    tool.wait_closed("Save report")
    check(os.path.islink("/root/dangling.rtf"), "the link was replaced")
    check(os.path.exists("/root/n.rtf"), "no report")
    tool.click(tool.look().widget("report_close_button"))
    tool.wait_closed("Report")
    tool.quit()


SCENARIOS = [demonstration, questions]
