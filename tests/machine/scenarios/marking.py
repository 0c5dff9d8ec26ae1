"""From the mark to the template: what a user marks, saves and reports."""

import glob
import os
import shutil

import templates
from robot import SHARE, TEMPLATES, Tool, check, check_equal, wait

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
    tool.expand("/dev/sdb1")
    tool.expand("/dev/sdb1", "boot")
    tool.mark("filebrowser", "/dev/sdb1", "boot", kernel)
    path = ["Program Files", "Trusted Loader", "loader configuration.ini"]
    for depth in range(len(path)):
        tool.expand("/dev/sda3", *path[:depth])
    tool.mark("filebrowser", "/dev/sda3", *path)
    tool.picture("out/files")
    size = os.path.getsize(f"/boot/{kernel}") + os.path.getsize("/".join([volume("sda3"), *path]))
    check_equal(tool.look().widget("total_files_size").text, f"{size} bytes", "size of the marked files")
    short = templates.short_names(volume("sda3"), "/".join(path))
    files = [f"C:/boot/{kernel}".encode(), b"K:\\" + short]
    save(tool, "files", len(files))

    tool.click(tool.look().widget("tab_sectors"))
    wait(lambda: tool.look().widget("sectors_default"), "the page of sectors")
    tool.click(tool.look().widget("sectors_default"))
    tool.answer("Confirm", "Do you really want to set default selection?", "Yes")
    sectors = all_sectors()
    save(tool, "sectors", len(sectors))
    for row in tool.look().children("diskbrowser", ""):
        tool.expand(row.texts[0], tree="diskbrowser")
    tool.picture("out/sectors")

    tool.click(tool.look().widget("report_button"))
    tool.wait_window("Report")
    tool.picture("out/report")
    rows = [row.texts[0] for row in tool.look().rows if row.tree == "file_report"]
    check_equal(rows, [f"sdb1:/boot/{kernel}", "sda3:\\" + "\\".join(path)], "files of the report")
    tool.click(tool.look().widget("report_save_button"))
    tool.wait_window("Save report")
    tool.enter("/root/report.rtf")
    tool.wait_closed("Save report")
    tool.press("Escape" if tool.look().window("Save report") else "alt+F4")
    tool.wait_closed("Report")
    tool.quit()

    shutil.copy("/root/report.rtf", OUT)
    for file in glob.glob(f"{TEMPLATES}/*"):
        shutil.copy(file, OUT)
    with open(f"{OUT}/listing.txt", "w", encoding="utf-8") as file:
        file.write(templates.listing(TEMPLATES))
    for kind, records in ((templates.FILES, files), (templates.SECTORS, sectors)):
        saved = templates.read(kind, TEMPLATES)
        check_equal(templates.records_of(kind, saved[0]), records, "records")
        check_equal(saved, templates.expected(kind, records, "C:/boot/pelva/"), "template")
    with open("/root/report.rtf", "rb") as report:
        check(report.read().startswith(b"{\\rtf1"), "the report is no RTF document")


SCENARIOS = [demonstration]
