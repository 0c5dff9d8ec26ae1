"""From the mark to the template: what a user marks, saves and reports."""

import glob
import os
import pathlib

import templates
from robot import SHARE, TEMPLATES, Tool, check_equal, shell

OUT = f"{SHARE}/out"
PELVA = "/mnt/fat/pelva"
FILL_UP = "cat /dev/zero >/mnt/fat/fill 2>/dev/null || true"
LOADER = ["Program Files", "Trusted Loader", "loader configuration.ini"]
MARKED = [["/dev/sdb1", "boot", os.path.basename(glob.glob("/boot/vmlinuz-*")[0])], ["/dev/sda3", *LOADER]]
DRIVES = {"sdb": 0x80, "md0": 0x81, "sda": 0x82, "sdc": 0x83, "sdg": 0x84}
# In the order of the rows: a partition table's sector, then what lies in it.
BOOT_SECTORS = ["sdb1", "md0p1", "md0p2", "sda1", "sda2", "sda5", "sda6", "sda3", "sdc2", "sdc3"]


def all_sectors():
    records = []
    for disk, drive in DRIVES.items():
        starts = [pathlib.Path(f"/sys/class/block/{name}/start") for name in BOOT_SECTORS if name.startswith(disk)]
        records += [(drive, 0), *((drive, int(start.read_text())) for start in starts)]
    return records


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
    size = os.path.getsize("/".join([glob.glob("/tmp/tarnel*/sda3")[0], *LOADER]))
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
    tool.quit()

    report = pathlib.Path("/root/report.rtf").read_text(encoding="cp1251")
    assert "\nFile: sda3:\\\\" + "\\\\".join(LOADER) + f", file size: {size}\\line\n" in report, report
    check_equal(templates.read(templates.SECTORS, TEMPLATES),
                templates.expected(templates.SECTORS, all_sectors(), "C:/boot/pelva/"), "sectors")
    shell(f"cp /root/report.rtf {TEMPLATES}/* {OUT}; tarnel-list {TEMPLATES} >{OUT}/listing.txt")


def mount_small_volume():
    shell(f"mkdir -p /mnt/fat && mount -t vfat /dev/sda1 /mnt/fat && mkdir -p {PELVA}")


def failed_saves():
    """A save onto a full, a read-only and a vanished file system leaves the old template, and the marks unsaved"""
    def check_saved(records, what):
        check_equal(templates.read(templates.SECTORS, PELVA),
                    templates.expected(templates.SECTORS, records, "E:\\pelva\\"), what)
        check_equal(sorted(os.listdir(PELVA)), ["bootsect.chk", "bootsect.nam"], what)

    mount_small_volume()
    tool = Tool(PELVADB=PELVA)
    tool.start()
    tool.push("tab_sectors")
    save(tool, "sectors")
    check_saved([], "empty template")
    tool.mark("/dev/sdb", "Master boot record", tree="diskbrowser")
    for fault, undo in ((FILL_UP, "rm /mnt/fat/fill"),
                        ("mount -o remount,ro /mnt/fat", "mount -o remount,rw /mnt/fat"),
                        ("umount /mnt/fat", "mount -t vfat /dev/sda1 /mnt/fat")):
        shell(fault)
        save(tool, "sectors")
        if fault == FILL_UP:
            tool.answer("Error", "Cannot write the sector template. The previous template stays in use.", "OK")
        tool.close()
        tool.answer("Confirm", "In data model were changes made. Save it before exiting?", "Cancel")
        shell(undo)
        check_saved([], f"after {undo}")
    tool.close()
    tool.answer("Confirm", "In data model were changes made. Save it before exiting?", "Yes")
    tool.wait_end()
    shell(f"rm {PELVA}/bootfile.*")
    check_saved([(DRIVES["sdb"], 0)], "once all is well again")
    shell(f"rm -r {PELVA} && umount /mnt/fat")
