"""From the mark to the template: what a user marks, saves and reports."""

import glob
import os
import pathlib

import templates
from robot import SHARE, TEMPLATES, Tool, check_equal, shell

OUT = f"{SHARE}/out"
PELVA = "/mnt/fat/pelva"
SMALL_VOLUME = f"mkdir -p /mnt/fat && mount -t vfat /dev/sda1 /mnt/fat && mkdir -p {PELVA}"
FILL_UP = "cat /dev/zero >/mnt/fat/fill 2>/dev/null || true"
LOADER = ["Program Files", "Trusted Loader", "loader configuration.ini"]
MARKED = [["/dev/sdb1", "boot", os.path.basename(glob.glob("/boot/vmlinuz-*")[0])], ["/dev/sda3", *LOADER]]
# By drive number, from 0x80, in the order of the rows: a partition table's sector, then what lies in it.
DRIVES = ["sdb sdb1", "md0 md0p1 md0p2", "sda sda1 sda2 sda5 sda6 sda3", "sdc sdc2 sdc3", "sdg"]


def check_sectors(directory, records, told):
    expected = templates.expected(templates.SECTORS, records, told)
    check_equal(templates.read(templates.SECTORS, directory), expected, "sectors")


def save(tool, page):
    tool.push(f"{page}_save")
    tool.answer("Confirm", "Do you really want to overwrite existing template?", "Yes")


def take_default_sectors(tool):
    tool.push("tab_sectors")
    tool.push("sectors_default")
    tool.answer("Confirm", "Do you really want to set default selection?", "Yes")


def demonstration():
    """A kernel on ext4, a long-named file on FAT32 and all boot sectors are marked, saved and reported"""
    shell(f"mkdir -p {OUT} /root/.local/share")  # where the file chooser remembers what was used
    tool = Tool()
    tool.start()
    for path in MARKED:
        tool.mark(*path)
    tool.picture("out/files")
    save(tool, "files")
    take_default_sectors(tool)
    save(tool, "sectors")
    tool.picture("out/sectors")

    tool.push("report_button")
    tool.wait_window("Report")
    tool.picture("out/report")
    tool.push("report_save_button")
    tool.wait_window("Save report")
    tool.press("Return")  # the name and the folder that it proposes
    tool.wait_closed("Save report")
    tool.press("alt+F4")
    tool.wait_closed("Report")
    tool.close()
    tool.wait_end()

    report = pathlib.Path("/root/report.rtf").read_text(encoding="cp1251")
    assert "\nFile: sda3:\\\\" + "\\\\".join(LOADER) + ", file size: 7\\line\n" in report, report
    records = [(drive, int(shell(f"cat /sys/class/block/{name}/start 2>/dev/null || echo 0")))  # a disk has none
               for drive, names in enumerate(DRIVES, 0x80) for name in names.split()]
    check_sectors(TEMPLATES, records, b"C:/boot/pelva/")
    shell(f"cp /root/report.rtf {TEMPLATES}/* {OUT}; tarnel-list {TEMPLATES} >{OUT}/listing.txt")


def failed_saves():
    """A save onto a full or a read-only file system leaves the old template, and the marks unsaved"""
    directory = "/mnt/fat/Шаблоны платы"
    shell(f"{SMALL_VOLUME}; mkdir '{directory}'")
    told = b"E:\\" + templates.short_names("/mnt/fat", "Шаблоны платы") + b"\\"
    tool = Tool(PELVADB=directory)
    tool.start()
    tool.push("tab_sectors")
    save(tool, "sectors")
    tool.mark("/dev/sdb", "Master boot record", tree="diskbrowser")
    for fault, undo in ((FILL_UP, "rm /mnt/fat/fill"),
                        ("mount -o remount,ro /mnt/fat", "mount -o remount,rw /mnt/fat")):
        shell(fault)
        save(tool, "sectors")
        if fault == FILL_UP:
            tool.answer("Error", "Cannot write the sector template. The previous template stays in use.", "OK")
        shell(undo)
        check_sectors(directory, [], told)
        check_equal(sorted(os.listdir(directory)), ["bootsect.chk", "bootsect.nam"], "files after a save that failed")
    tool.close()
    tool.answer("Confirm", "In data model were changes made. Save it before exiting?", "Yes")
    tool.wait_end()
    check_sectors(directory, [(0x80, 0)], told)
