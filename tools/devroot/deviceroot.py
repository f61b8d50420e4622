"""The folder that stands in for the device's paths, and the bubblewrap line
that mounts it.

A device root folder holds:
  shm/           bound on /dev/shm (POSIX shared memory, named semaphores)
  var/volatile/  var/ bound on /var
  kmsg           bound on /dev/kmsg: a plain file (exec) or a FIFO (run)
  kmsg.log       the lines drained from a FIFO kmsg
  mmcblk1        bound on /dev/mmcblk1 (0x110000 bytes)
  mem            bound on /dev/mem (sparse, 0x020CD000 bytes)
  product.info   bound read-only on /product.info (absent with --no-product-info)
  group          bound read-only on /etc/group: the host's groups and the
                 daemons' group (DAEMON_GROUP, "settings" unless --group names
                 another) when the host has none of that name

Several sandboxes that bind the same folder share one device.  Programs run
as root without capabilities (file modes are enforced inside: a test can make
a path unwritable with chmod), with the daemons' group as their group, as the
systemd units run the daemons: what they make belongs to that group.
"""

import os
import shutil
import stat

MMC_SIZE = 0x110000
MEM_SIZE = 0x020CD000
DEFAULT_PRODUCT_INFO = "0.0.0-dev\nunknown\n"
COPY_CHUNK = 1 << 16
DAEMON_GROUP = "settings"
HOST_GROUPS = "/etc/group"
# Where a daemons' group that the host lacks gets its number: the highest free
# system group number.
SYSTEM_GIDS = range(999, 99, -1)


class RootError(Exception):
    """A device root cannot be made or used; the text says why."""


def _sparse_file(path, size):
    with open(path, "wb") as image:
        image.truncate(size)


def _sparse_copy(source, target):
    """Copies source to target, leaving runs of zero bytes as holes."""
    zero = bytes(COPY_CHUNK)
    with open(source, "rb") as src, open(target, "wb") as dst:
        while True:
            chunk = src.read(COPY_CHUNK)
            if not chunk:
                break
            if chunk == zero[: len(chunk)]:
                dst.seek(len(chunk), os.SEEK_CUR)
            else:
                dst.write(chunk)
        dst.truncate(dst.tell())


def _seed_image(path, source, size):
    if source is None:
        _sparse_file(path, size)
    else:
        _sparse_copy(source, path)


def _host_groups():
    with open(HOST_GROUPS, encoding="utf-8") as groups:
        return groups.read()


def group_id(name=DAEMON_GROUP, groups=None):
    """The number of the group `name` in a root's group file (or the host's)."""
    for line in (groups if groups is not None else _host_groups()).splitlines():
        fields = line.split(":")
        if len(fields) >= 3 and fields[0] == name:
            return int(fields[2])
    return None


def _write_groups(path, name):
    """The host's groups, and `name` with a free system number if the host has
    no group of that name."""
    groups = _host_groups()
    if group_id(name, groups) is None:
        used = {int(line.split(":")[2]) for line in groups.splitlines()
                if line.count(":") >= 3 and line.split(":")[2].isdigit()}
        number = next(gid for gid in SYSTEM_GIDS if gid not in used)
        groups = groups.rstrip("\n") + f"\n{name}:x:{number}:\n"
    with open(path, "w", encoding="utf-8") as target:
        target.write(groups)


def root_group(folder):
    """The daemons' group number of the device root at `folder`."""
    with open(os.path.join(folder, "group"), encoding="utf-8") as groups:
        text = groups.read()
    with open(os.path.join(folder, "group.name"), encoding="utf-8") as name:
        return group_id(name.read().strip(), text)


def create(folder, kmsg_fifo, mmc=None, mem=None, product_info=None, no_product_info=False,
           group=DAEMON_GROUP):
    """Fills the empty folder with a fresh device."""
    os.makedirs(os.path.join(folder, "shm"))
    os.chmod(os.path.join(folder, "shm"), 0o1777)
    os.makedirs(os.path.join(folder, "var", "volatile"))
    kmsg = os.path.join(folder, "kmsg")
    if kmsg_fifo:
        os.mkfifo(kmsg, 0o622)
    else:
        open(kmsg, "wb").close()
    _write_groups(os.path.join(folder, "group"), group)
    with open(os.path.join(folder, "group.name"), "w", encoding="utf-8") as name:
        name.write(group + "\n")
    _seed_image(os.path.join(folder, "mmcblk1"), mmc, MMC_SIZE)
    _seed_image(os.path.join(folder, "mem"), mem, MEM_SIZE)
    if not no_product_info:
        target = os.path.join(folder, "product.info")
        if product_info is None:
            with open(target, "w") as info:
                info.write(DEFAULT_PRODUCT_INFO)
        else:
            shutil.copyfile(product_info, target)


def check_existing(folder):
    """Refuses a folder that is not a device root."""
    for name in ("shm", "var", "kmsg", "mmcblk1", "mem", "group", "group.name"):
        if not os.path.exists(os.path.join(folder, name)):
            raise RootError(f"{folder} is not a device root: {name} is missing")


def kmsg_is_fifo(folder):
    return stat.S_ISFIFO(os.stat(os.path.join(folder, "kmsg")).st_mode)


def bwrap_command(folder, binds_ro, binds_rw, extra=(), var_size=None, shm_size=None,
                  user_switch=False):
    """The command that mounts the device root over a fresh tmpfs with
    bubblewrap, run with the root's daemons' group as its group.

    Only /usr and /etc of the host are visible (read-only) besides the binds
    asked for; /dev is a fresh minimal one with the device files laid over it.
    With var_size (bytes), /var is a tmpfs of that size holding an empty
    /var/volatile instead of the root folder's var/: a small disk that fills
    up, private to this sandbox and gone when it ends.  With shm_size (bytes),
    /dev/shm is likewise a private tmpfs of that size, as on the device,
    instead of the root folder's shm/ (which lives on the host's disk).  With
    user_switch, the programs keep CAP_SETUID and CAP_SETGID, so that a step
    can run as another user (setpriv), and CAP_SETPCAP, so that a step can be
    started without any capability (setpriv --bounding-set=-all); the
    capabilities go with that switch.
    """
    def inside(name):
        return os.path.join(folder, name)

    gid = str(root_group(folder))
    command = [
        "setpriv", f"--regid={gid}", f"--groups={gid}", "--",
        "bwrap", "--tmpfs", "/", "--ro-bind", "/usr", "/usr",
        "--symlink", "usr/bin", "/bin", "--symlink", "usr/lib", "/lib",
        "--symlink", "usr/lib64", "/lib64", "--symlink", "usr/sbin", "/sbin",
        "--ro-bind", "/etc", "/etc", "--ro-bind", inside("group"), "/etc/group",
        "--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp",
        "--bind", inside("kmsg"), "/dev/kmsg", "--bind", inside("mmcblk1"), "/dev/mmcblk1",
        "--bind", inside("mem"), "/dev/mem",
    ]
    if shm_size is None:
        command += ["--bind", inside("shm"), "/dev/shm"]
    else:
        command += ["--size", str(shm_size), "--tmpfs", "/dev/shm"]
    if var_size is None:
        command += ["--bind", inside("var"), "/var"]
    else:
        command += ["--size", str(var_size), "--tmpfs", "/var", "--dir", "/var/volatile"]
    if os.path.exists(inside("product.info")):
        command += ["--ro-bind", inside("product.info"), "/product.info"]
    for path in binds_ro:
        command += ["--ro-bind", path, path]
    for path in binds_rw:
        command += ["--bind", path, path]
    command += list(extra)
    # The host's service manager is not the device's: programs inside never
    # notify it (a test that plays the service manager sets its own socket).
    command += ["--unsetenv", "NOTIFY_SOCKET"]
    command += ["--unshare-pid", "--die-with-parent", "--cap-drop", "ALL"]
    if user_switch:
        command += ["--cap-add", "CAP_SETUID", "--cap-add", "CAP_SETGID",
                    "--cap-add", "CAP_SETPCAP"]
    return command
