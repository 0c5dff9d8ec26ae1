"""Disks and file systems that fail while the tool uses them."""

import os
import subprocess

import templates
from marking import DRIVES, open_page
from robot import SHARE, Tool, check, check_equal, shell, wait, xdotool

PELVA = "/mnt/fat/pelva"


def fill_up():
    with open("/mnt/fat/fill", "wb") as file:
        try:
            while True:
                file.write(bytes(1 << 16))
                file.flush()
        except OSError:
            pass


def failed_saves():
    """A save onto a full, a read-only and a vanished file system leaves the old template, and the marks unsaved"""
    os.makedirs("/mnt/fat", exist_ok=True)
    shell(f"mount -t vfat /dev/sda1 /mnt/fat && mkdir -p {PELVA}")
    tool = Tool(PELVADB=PELVA)
    tool.start()
    open_page(tool, "sectors")
    tool.expand("/dev/sdb", tree="diskbrowser")

    def save():
        tool.click(tool.look().widget("sectors_save"))
        tool.answer("Confirm", "Do you really want to overwrite existing template?", "Yes")

    def check_saved(records, what):
        check_equal(templates.read(templates.SECTORS, PELVA),
                    templates.expected(templates.SECTORS, records, "E:\\pelva\\"), what)
        check_equal(sorted(os.listdir(PELVA)), ["bootsect.chk", "bootsect.nam"], what)

    save()
    check_saved([], "empty template")
    tool.mark("diskbrowser", "/dev/sdb", "Master boot record")
    for fault, undo in ((fill_up, "rm /mnt/fat/fill"),
                        (lambda: shell("mount -o remount,ro /mnt/fat"), "mount -o remount,rw /mnt/fat"),
                        (lambda: shell("umount /mnt/fat"), "mount -t vfat /dev/sda1 /mnt/fat")):
        fault()
        save()
        if undo.startswith("rm"):
            tool.picture("failed_save")
            tool.answer("Error", "Cannot write the sector template. The previous template stays in use.", "OK")
        else:
            wait(lambda: any("Cannot open file for writing" in line for line in tool.trace()), "a trace of the failure")
        tool.close()
        tool.answer("Confirm", "In data model were changes made. Save it before exiting?", "Cancel")
        shell(undo)
        check_saved([], f"after {undo}")
    tool.close()
    look = tool.wait_window("Confirm")
    tool.click(next(item for item in look.widgets if item.window == "Confirm" and item.text == "Yes"))
    check_equal(tool.wait_end(), 0, "exit status")
    shell(f"rm {PELVA}/bootfile.*")
    check_saved([(DRIVES["sdb"], 0)], "once all is well again")
    shell(f"rm -r {PELVA} && umount /mnt/fat")


def slow_disk():
    """A disk that takes half a second for every answer is waited for"""
    shell("modprobe scsi_debug dev_size_mb=8; echo - - - >/sys/class/scsi_host/host1/scan")
    wait(lambda: os.path.exists("/dev/sdh"), "the disk")
    shell("echo 2048,2048,83 | sfdisk -q /dev/sdh; mke2fs -q -t ext2 /dev/sdh1; blockdev --flushbufs /dev/sdh")
    shell("sync; echo 3 >/proc/sys/vm/drop_caches; echo 125 >/sys/bus/pseudo/drivers/scsi_debug/delay")
    try:
        tool = Tool()
        tool.start()
        check(tool.look().row("filebrowser", "/dev/sdh1"), "its partition is missing")
        tool.quit()
    finally:
        subprocess.run(["rmmod", "scsi_debug"], check=False)


def slow_directory():
    """A slow directory is read behind the progress window, then unfolds; what is pressed meanwhile is dropped"""
    tool = Tool(LD_PRELOAD=f"{SHARE}/slow.so")
    tool.start()
    tool.expand("/dev/sda5")
    row = tool.show("filebrowser", "/dev/sda5", "many files")
    middle = row.y + row.height // 2
    xdotool("mousemove", row.x - 10, middle, "click", 1, "mousemove", row.x + 10, middle, "click", 3)
    look = wait(lambda: (look := tool.look()).widget("progressbar") and look, "the progress window")
    check_equal([below.texts for below in look.children("filebrowser", row.path)], [], "rows too early")
    tool.press("alt+F4")
    tool.click(row, 3)
    check(tool.look().widget("progressbar"), "the progress window is gone")
    tool.picture("unfolding")
    look = wait(lambda: not (look := tool.look()).widget("progressbar") and look, "the end")
    check(len(look.children("filebrowser", row.path)) >= 4000, "rows are missing")
    check_equal(tool.look().widget("total_files_selected").text, "0", "marked files")
    tool.quit()


SCENARIOS = [failed_saves, slow_disk, slow_directory]
