"""What the machine boots: Debian's kernel, and a small file system in memory with the modules of the ALSA sequencer.

Made once below a folder and kept there. The kernel package is downloaded and unpacked, never installed.
"""

import contextlib
import fcntl
import hashlib
import lzma
import pathlib
import platform
import shutil
import struct
import subprocess
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
INIT = HERE / "init"
KERNEL = "linux-image-amd64"  # depends on the package of the present kernel
MODULES = ("virtio_pci", "9pnet_virtio", "9p", "overlay", "snd-seq", "snd-seq-dummy", "snd-hrtimer", "snd-virmidi")
TOOLS = ("qemu-system-x86_64", "busybox", "cpio", "depmod", "modprobe", "apt-cache", "apt-get", "dpkg-deb")


class Unavailable(Exception):
    """Why there can be no machine here."""


def _tool(name):
    return shutil.which(name, path="/usr/local/bin:/usr/bin:/bin:/usr/local/sbin:/usr/sbin:/sbin")


def check_tools():
    """Raises Unavailable when this computer lacks what the machine needs."""
    if platform.machine() != "x86_64":
        raise Unavailable(f"the machine runs this computer's programs, which are for {platform.machine()}, not x86_64")
    missing = [name for name in TOOLS if not _tool(name)]
    if missing:
        raise Unavailable("missing: " + ", ".join(missing))
    with open(_tool("busybox"), "rb") as program:
        if b"/ld-linux" in program.read(4096):
            raise Unavailable("busybox is not the static one (package busybox-static)")


@contextlib.contextmanager
def _locked(folder):
    with open(folder / "lock", "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def _output(*command, cwd=None):
    result = subprocess.run(command, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    if result.returncode != 0:
        raise Unavailable(f"{' '.join(command[:3])}: {(result.stderr.strip() or 'failed').splitlines()[-1]}")
    return result.stdout


def _download(folder):
    """Downloads the package of the present kernel into `folder` and returns its path."""
    depends = [line.split()[1] for line in _output("apt-cache", "depends", KERNEL).splitlines() if "Depends:" in line]
    names = [name for name in depends if name.startswith("linux-image-")]
    if not names:
        raise Unavailable(f"no kernel package is known to apt ({KERNEL})")
    _output("apt-get", "-q", "-o", "APT::Sandbox::User=root", "download", names[0], cwd=folder)
    return next(folder.glob("linux-image-*.deb"))


def _unpacked_kernel(packed):
    """The kernel itself, an ELF file, out of the bytes of a bzImage. The machine's processor is emulated: to unpack the kernel
    would take it longer than all the rest of its start. The places in the header are those of the kernel's boot protocol 2.08."""
    setup_sectors = packed[0x1F1] or 4
    start, length = struct.unpack_from("<II", packed, 0x248)
    start += (setup_sectors + 1) * 512
    try:
        kernel = lzma.LZMADecompressor().decompress(packed[start:start + length])
    except lzma.LZMAError as problem:
        raise Unavailable(f"the kernel cannot be unpacked: {problem}") from problem
    if not kernel.startswith(b"\x7fELF"):
        raise Unavailable("what the kernel's package has packed is no kernel")
    return kernel


def _make_kernel(folder):
    """Fills `folder` with vmlinux and modules/: the modules' files and `order`, in which they are to be loaded."""
    package = _download(folder)
    unpacked = folder / "unpacked"
    _output("dpkg-deb", "-x", str(package), str(unpacked))
    package.unlink()
    kernel = next((unpacked / "boot").glob("vmlinuz-*"))
    version = kernel.name.removeprefix("vmlinuz-")
    (folder / "vmlinux").write_bytes(_unpacked_kernel(kernel.read_bytes()))
    _output(_tool("depmod"), "-b", str(unpacked), version)
    (folder / "modules").mkdir()
    order = []
    for module in MODULES:
        plan = _output(_tool("modprobe"), "-d", str(unpacked), "-S", version, "--show-depends", module)
        for line in plan.splitlines():
            words = line.split()
            path = pathlib.Path(words[1])
            if words[0] == "insmod" and path.name not in order:
                shutil.copy(path, folder / "modules" / path.name)
                order.append(path.name)
    (folder / "modules" / "order").write_text("\n".join(order) + "\n", encoding="utf-8")
    shutil.rmtree(unpacked)


def archive(root):
    """The bytes of a cpio archive of the folder `root`, as the kernel unpacks it."""
    names = "\0".join(path.relative_to(root).as_posix() for path in sorted(root.rglob("*"))) + "\0"
    made = subprocess.run([_tool("cpio"), "--quiet", "-0", "-o", "-H", "newc", "--owner=+0:+0"], cwd=root,
                          input=names.encode(), stdout=subprocess.PIPE, check=True)
    return made.stdout


def _make_initramfs(kernel, target):
    with tempfile.TemporaryDirectory(dir=target.parent) as name:
        root = pathlib.Path(name)
        for folder in ("bin", "dev", "proc", "sys"):
            (root / folder).mkdir()
        shutil.copy(_tool("busybox"), root / "bin" / "busybox")
        shutil.copy(INIT, root / "init")
        (root / "init").chmod(0o755)
        shutil.copytree(kernel / "modules", root / "modules")
        made = target.with_suffix(".new")
        made.write_bytes(archive(root))
        made.rename(target)


def prepare(cache):
    """The paths of the kernel and of the initial file system, made below the folder `cache` where they are not yet there.

    Any number of processes may call this at once. Raises Unavailable.
    """
    check_tools()
    cache = pathlib.Path(cache)
    cache.mkdir(parents=True, exist_ok=True)
    recipe = hashlib.sha256(INIT.read_bytes() + repr(MODULES).encode()).hexdigest()[:12]
    modules = hashlib.sha256(repr(MODULES).encode()).hexdigest()[:12]
    kernel = cache / f"unpacked-kernel-{modules}"
    initramfs = cache / f"initramfs-{recipe}.cpio"
    with _locked(cache):
        if not kernel.is_dir():
            with tempfile.TemporaryDirectory(dir=cache) as name:
                made = pathlib.Path(name) / "kernel"
                made.mkdir()
                _make_kernel(made)
                made.rename(kernel)
        if not initramfs.is_file():
            _make_initramfs(kernel, initramfs)
    return kernel / "vmlinux", initramfs
