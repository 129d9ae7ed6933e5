# SPDX-License-Identifier: GPL-2.0
"""The ten reports of zorva from a kernel that no longer answers.

    gdb-multiarch -ex 'target remote :1234' -ex 'source zorva-gdb.py' \\
        -ex 'zorva-reports DIR --module zorva.ko' vmlinux

adds the command zorva-reports to gdb. It reads a halted kernel, or a core of
one, and writes what the files under /proc/zorva would have said in this
moment. Nothing is called and nothing is changed in the kernel.
"""
import argparse
import os
import struct

import gdb

HERE = os.path.dirname(os.path.abspath(__file__))

# Nothing is listed that often: a list that goes on was torn.
LONGEST_LIST = 4 * 1000 * 1000


class Fault(Exception):
    """What stands in the way of an answer."""


def check(condition, text):
    """Ends the command with a text unless a condition holds."""
    if not condition:
        raise Fault(text)


class ElfFile:
    """The section headers of a module's file, as the loader sees them."""

    SHF_WRITE, SHF_ALLOC, SHF_EXECINSTR = 1, 2, 4

    def __init__(self, path):
        with open(path, "rb") as file:
            data = file.read()
        check(data[:4] == b"\x7fELF", f"{path}: not an ELF file")
        order = "<" if data[5] == 1 else ">"
        wide = data[4] == 2
        where, size, count, names = (
            struct.unpack_from(order + "Q10xHHH", data, 40 + 0)
            if wide else struct.unpack_from(order + "I10xHHH", data, 32))
        form = order + ("IIQQQQIIQQ" if wide else "10I")
        rows = [struct.unpack_from(form, data, where + i * size)
                for i in range(count)]
        self.sections = []
        self.notes = {}
        for row in rows[1:]:
            start = rows[names][4] + row[0]
            name = data[start:data.index(b"\0", start)].decode()
            self.sections.append((name, row[2], row[5], row[8] or 1))
            if name == ".note.gnu.build-id":
                self.notes[name] = data[row[4]:row[4] + row[5]]
        self.has_types = any(s[0] == ".debug_info" for s in self.sections)


class Memory:
    """Reads the kernel's memory by virtual addresses.

    Where the processor finds a page only by a table that software walks, as on
    MIPS, neither an emulator nor a debugger's probe reads what happens not to
    be in its translation buffer. The kernel's own table tells the place.
    """

    KSEG0, KSEG1, KSEG2 = 0x80000000, 0xA0000000, 0xC0000000

    def __init__(self, constants):
        self.constants = constants
        self.inferior = gdb.selected_inferior()
        self.pages = {}
        self.table = (address_of("swapper_pg_dir")
                      if "zorva_gdb_pfn_shift" in constants else None)

    def read(self, address, size):
        """The bytes at an address; gdb.MemoryError where there are none."""
        if self.table is None or address < self.KSEG2:
            return bytes(self.inferior.read_memory(address, size))
        out = b""
        while size:
            page, offset = address & ~0xFFF, address & 0xFFF
            part = min(size, 0x1000 - offset)
            place = self.place(page) + offset
            out += bytes(self.inferior.read_memory(place, part))
            address, size = address + part, size - part
        return out

    def place(self, page):
        """Where a page of the mapped segments can be read at all times."""
        if page not in self.pages:
            get = self.constants
            top = page >> get["zorva_gdb_pgdir_shift"]
            table = self.word(self.table + 4 * top)
            index = (page >> 12) & (
                (1 << (get["zorva_gdb_pgdir_shift"] - 12)) - 1)
            entry = 0
            if self.KSEG0 <= table < self.KSEG1:
                entry = self.word(table + get["zorva_gdb_pte_size"] * index)
            if not entry & get["zorva_gdb_page_present"]:
                raise gdb.MemoryError(f"no page at {page:#x}")
            frame = entry >> get["zorva_gdb_pfn_shift"] << 12
            self.pages[page] = self.KSEG0 + frame
        return self.pages[page]

    def word(self, address):
        """A word that is always mapped."""
        return struct.unpack(">I", self.inferior.read_memory(address, 4))[0]

    def peek(self, address):
        """A word as the module's detailed report reads it: 0 for none."""
        if self.table is not None:
            if self.KSEG1 <= address < self.KSEG2:
                return 0
            if self.KSEG0 <= address < self.KSEG1:
                end = self.word(address_of("high_memory"))
                if address >= end:
                    return 0
        try:
            order = "big" if big_endian() else "little"
            return int.from_bytes(self.read(address, 4), order)
        except gdb.MemoryError:
            return 0


def plain(address):
    """An address in as many bits as the machine has: gdb extends the sign."""
    return address & ((1 << 8 * gdb.lookup_type("long").sizeof) - 1)


def number_of(value):
    """A whole number, or a pointer as one."""
    pointer = value.type.strip_typedefs().code == gdb.TYPE_CODE_PTR
    return plain(int(value)) if pointer else int(value)


def scalar(value):
    """The number in a structure of one member, however deep."""
    while value.type.strip_typedefs().code == gdb.TYPE_CODE_STRUCT:
        value = value[value.type.strip_typedefs().fields()[0].name]
    return int(value)


def big_endian():
    """Of the machine that is looked at."""
    return "big" in gdb.execute("show endian", to_string=True)


def address_of(name):
    """The address of a symbol of the kernel's own."""
    try:
        return plain(int(gdb.parse_and_eval(f"(long)&'{name}'")))
    except gdb.error:
        raise Fault(f"the kernel's symbols have no {name}: "
                    "start gdb with the vmlinux that runs") from None


def kernel_type(name):
    """A type of the kernel's, by the pointer to it that types.c has."""
    symbol = gdb.lookup_global_symbol(f"zorva_gdb_{name}")
    check(symbol, f"types.o does not know {name}")
    return symbol.type.target()


class Record:
    """A structure in the kernel's memory, read once, with its fields."""

    def __init__(self, memory, kind, address):
        self.memory = memory
        self.address = address
        self.kind = kind.strip_typedefs()
        self.value = gdb.Value(memory.read(address, self.kind.sizeof),
                               self.kind)

    def __getitem__(self, field):
        return self.value[field]

    def number(self, field):
        """A whole number, or a pointer as one."""
        return number_of(self.value[field])

    def text(self, field, limit=None):
        """The text in a field of characters."""
        kind = self.kind[field]
        start = self.address + kind.bitpos // 8
        size = min(kind.type.sizeof, limit or kind.type.sizeof)
        return text_of(self.memory.read(start, size))

    def at(self, field):
        """The address of a field."""
        return self.address + self.kind[field].bitpos // 8

    def inner(self, field):
        """A structure within this one."""
        return Record(self.memory, self.kind[field].type, self.at(field))


def text_of(data):
    """Bytes up to their end, each a character."""
    return data.split(b"\0")[0].decode("latin-1")


def signed(value):
    """What %d makes of 32 bits."""
    value &= 0xFFFFFFFF
    return value - (1 << 32) if value >> 31 else value


class Kernel:
    """The halted kernel, and the module in it."""

    def __init__(self, module_file, types_file):
        for path in (module_file, types_file):
            check(os.path.isfile(path), f"{path}: no such file")
        self.elf = ElfFile(module_file)
        check(self.elf.has_types, f"{module_file}: built without -g")
        load_symbols(types_file, {".text": 0})
        constants = gdb.lookup_global_symbol("zorva_gdb_constants").type
        self.memory = Memory({f.name: f.enumval for f in constants.fields()})
        self.module = self.find_module("zorva")
        places = self.places()
        load_symbols(module_file, places)
        self.names = self.component_names()

    def find_module(self, wanted):
        """The kernel's record of a loaded module."""
        kind = kernel_type("module")
        head = address_of("modules")
        for link in self.links(head):
            record = Record(self.memory, kind,
                            link - kind["list"].bitpos // 8)
            if record.text("name") == wanted:
                return record
        raise Fault(f"the kernel has no module {wanted}")

    def places(self):
        """Where the loader has put each section of the module.

        It groups them by what may be done with them, and in each group keeps
        the order of the file. That the sum is right is shown by the module's
        own record, which is a section itself.
        """
        check("core_layout" in [f.name for f in self.module.kind.fields()],
              "this kernel lays modules out in a way that is not known here")
        base = self.module.inner("core_layout").number("base")
        write, alloc, run = (ElfFile.SHF_WRITE, ElfFile.SHF_ALLOC,
                             ElfFile.SHF_EXECINSTR)
        small = 0x10000000 if self.memory.table is not None else 0
        late = (".data..ro_after_init", "__jump_table")

        def group(name, flags):
            if not flags & alloc or name in (".modinfo", "__versions") or \
                    name.startswith((".init", ".data..percpu")):
                return None
            if small and flags & small:
                return 4
            if flags & run:
                return 0
            if not flags & write:
                return 1
            return 2 if name in late else 3

        places = {}
        end = 0
        for wanted in range(5):
            for name, flags, size, align in self.elf.sections:
                if group(name, flags) == wanted:
                    end = -(-end // align) * align
                    places[name] = base + end
                    end += size
        check(places.get(".gnu.linkonce.this_module") == self.module.address,
              "the module that runs is another build than this zorva.ko")
        for name, note in self.elf.notes.items():
            check(self.memory.read(places[name], len(note)) == note,
                  "the module that runs is another build than this zorva.ko")
        return places

    def links(self, head):
        """The addresses of a kernel list's links, but for its head."""
        kind = kernel_type("list_head")
        link = Record(self.memory, kind, head).number("next")
        for _ in range(LONGEST_LIST):
            if link == head:
                return
            yield link
            link = Record(self.memory, kind, link).number("next")
        raise Fault("a list of the kernel's has no end")

    def record(self, kind, address):
        """A record of the module's, by the name of its type or by the type."""
        if isinstance(kind, str):
            kind = gdb.lookup_type(kind)
        return Record(self.memory, kind, address)

    def variable(self, name):
        """A global of the module's."""
        symbol = gdb.lookup_global_symbol(name)
        check(symbol, f"the module has no {name}")
        value = symbol.value()
        return Record(self.memory, value.type, plain(int(value.address)))

    def pointer(self, name):
        """The value of a global pointer of the module's, and what it is to."""
        record = self.variable(name)
        return number_of(record.value), record.kind.target()

    def chain(self, kind, address, following):
        """The records of a list that ends with null."""
        for _ in range(LONGEST_LIST):
            if not address:
                return
            record = self.record(kind, address)
            yield record
            address = record.number(following)
        raise Fault("a list of the module's has no end")

    def component_names(self):
        """The short names of all components."""
        table = self.variable("_componentName")
        first, last = table.kind.range()
        return [self.string(number_of(table.value[i]))
                for i in range(first, last + 1)]

    def string(self, address):
        """A terminated text, of which a report shows no more than this."""
        out = b""
        while b"\0" not in out and len(out) < 256:
            out += self.memory.read(address + len(out), 16)
        return text_of(out)

    def seconds(self):
        """The module's clock: seconds since boot, as of the last tick."""
        core = Record(self.memory, kernel_type("tk_core"),
                      address_of("tk_core"))
        keeper = core.inner("timekeeper")
        # Halted within an update: the kernel has a second one.
        if scalar(core["seq"]) & 1:
            keeper = Record(self.memory, kernel_type("timekeeper"),
                            address_of("shadow_timekeeper"))
        clock = keeper["tkr_mono"]
        now = int(clock["base"]) + int(keeper["offs_boot"]) + (
            int(clock["xtime_nsec"]) >> int(clock["shift"]))
        return now // 1000000000 & 0xFFFFFFFF

    # The reports, as docs/reports.md has them.

    def usage(self):
        """Each component's ID, name and account, of those that have memory."""
        table = self.variable("_zorvaMallocMemUsage")
        first, last = table.kind.range()
        for i in range(first, last + 1):
            account = table.value[i]
            fields = [int(account[name]) for name in
                      ("currUsage", "maxUsage", "allocCount", "freeCount")]
            if fields[0]:
                yield i, self.names[i], fields

    def mem(self):
        """zorva.mem"""
        out = ["           Curr        Max         Alloc       Free"
               "             \n",
               "Component  Usage       Usage       Count       Count"
               "       Delta\n", "=" * 67 + "\n"]
        for _, name, fields in self.usage():
            out.append(f"{name:<11}" + "".join(f"{n:<12}" for n in fields) +
                       f"+{(fields[2] - fields[3]) & 0xFFFFFFFF:<7}\n")
        return out

    def mem_detail(self):
        """zorva.mem.detail"""
        rule = "----------------\n"
        out = ["\n", rule, f"Current Time : {self.seconds()}\n", rule + "\n"]
        wanted = text_of(self.memory.read(
            self.variable("_targetComp").address, 16))
        lines = {}
        head, kind = self.pointer("_pZorvaMallocMemList")
        for block in self.chain(kind, head, "next"):
            if block.number("inUse"):
                lines.setdefault(block.number("compId"), []).append(
                    self.block_line(block))
        for i, name, fields in self.usage():
            if wanted and wanted != name:
                continue
            out += [f"Component   : {name}\n"]
            out += [f"{title:<12}: {n}\n" for title, n in zip(
                ("Curr Usage", "Max Usage", "Alloc Count", "Free Count"),
                fields)]
            out += [rule, *lines.get(i, []), "\n"]
        return out

    def block_line(self, block):
        """One block, whole or torn."""
        size, line = block.number("size"), block.number("line")
        file = block.text("file")
        start = block.address + block.kind.sizeof
        distance = (size + 3) & 0xFFFFFFFC
        width = 2 * block.kind["next"].type.sizeof
        guard = 0
        if block.number("startMagic") == 0xAAAAAAAA:
            guard = self.memory.peek(start + distance)
        if guard == 0xBBBBBBBB:
            return (f"  [{block.number('allocTime'):010}] "
                    f"{start:0{width}x} - {size} bytes "
                    f"({file}, {signed(line)})\n")
        mask = (1 << 4 * width) - 1
        end = self.memory.peek(
            (start + (distance * 4 & 0xFFFFFFFF)) & mask)
        return (f"<memory corruption 0x{block.address:0{width}x} "
                f"invalid end 0x{end:08x} (expected 0xbbbbbbbb) "
                f"({file}, {line})>\n")

    def thread(self):
        """zorva.thread"""
        out = []
        kind = gdb.lookup_type("(anonymous namespace)::thread_record")
        task_kind = kernel_type("task_struct")
        state = "state" if any(f.name == "state"
                               for f in task_kind.fields()) else "__state"
        head = address_of("kthread_list")
        for link in self.links(head):
            record = self.record(kind, link - kind["link"].bitpos // 8)
            task = Record(self.memory, task_kind, record.number("task"))
            out += [f"Component : {self.names[record.number('component')]}\n",
                    f"Name      : {record.text('name')}\n",
                    f"PID       : {task.number('pid')}\n",
                    f"State     : {task.number(state)}\n",
                    f"Priority  : {record.number('priority')}\n", "\n"]
        return out

    def locks(self, registry, title, kind, detail):
        """The four reports of mutexes and semaphores."""
        table = self.variable(registry)
        if not table.number("initialised"):
            return []
        mutexes = kind == "Mutex"
        out = ["\n", "----------------\n", title + "\n",
               f"Current Time : {self.seconds()}\n", "----------------\n\n"]
        shown = 0
        record_kind = table["head"].type.target()
        for record in self.chain(record_kind, table.number("head"), "next"):
            locked = (self.mutex_is_locked(record) if mutexes
                      else self.units(record) == 0)
            if not record.number("active") or not (detail or locked):
                continue
            component = record.number("component")
            out += [f"Index     : {signed(record.number('index'))}\n",
                    f"Name      : {record.text('name')}\n",
                    f"Component : {self.names[component]} ({component})\n",
                    f"Status    : {'Take' if locked else 'Give'}\n"]
            if mutexes and (locked or not detail):
                out.append(f"Locker    : {self.locker(record)} "
                           f"({record.text('lockerName')})\n")
            out.append("-" * 33 + "\n")
            out += self.history(record)
            out.append("\n")
            shown += 1
        if detail:
            out.append(f"\nTotal number of {kind}: {table.number('count')} "
                       f"(active {shown})\n\n")
        else:
            out.append(f"\nNumber of {kind}: {shown}\n\n")
        return out

    def mutex_is_locked(self, record):
        """Whether the kernel's mutex has an owner."""
        lock = Record(self.memory, kernel_type("mutex"), record.at("mutex"))
        return scalar(lock["owner"]) & ~7 != 0

    def units(self, record):
        """How many units the kernel's semaphore has."""
        return Record(self.memory, kernel_type("semaphore"),
                      record.at("semaphore")).number("count")

    def locker(self, record):
        """The PID of the task that took a mutex last."""
        return signed(scalar(record["lockerPid"]))

    def history(self, record):
        """The last calls, newest first."""
        table = record.inner("history")
        size = table.kind.target().sizeof
        head = record.number("historyHead")
        for i in range(8):
            entry = self.record(table.kind.target(),
                                table.address + (head - i) % 8 * size)
            if not entry.number("line"):
                return
            given = entry.number("action") != 0
            suffix = ""
            if not given and any(f.name == "timeout"
                                 for f in entry.kind.fields()):
                limit = entry.number("timeout")
                suffix = (" (forever)" if limit == 0xFFFFFFFF
                          else f" ({limit} msec)"[:15])
            yield (f"  [{entry.number('time'):016}] "
                   f"{'Give' if given else 'Take'} @{entry.text('file')}, "
                   f"{signed(entry.number('line'))}{suffix}\n")

    def timers(self, list_name, kind):
        """zorva.timer and zorva.hrt"""
        out = ["Component  Timer    Data  Msec     Running  StartBy  \n",
               "=" * 60 + "\n"]
        head, list_kind = self.pointer(list_name)
        if not head:
            return out
        registry = self.record(list_kind, head)
        if registry.number("magic") != 0xDEADBEEF:
            return out
        node_kind = registry["pFirst"].type.target()
        for node in self.chain(node_kind, registry.number("pFirst"), "pNext"):
            if not node.number("pData"):
                continue
            timer = self.record(kind, node.number("pData"))
            line = (f"{self.names[timer.number('component')]:<11}"
                    f"{timer.number('timerId'):<9}{timer.number('data'):<6}"
                    f"{timer.number('period'):<9}"
                    f"{timer.number('running'):<9}")
            if timer.number("running"):
                line += (f"{timer.text('startFile')}, "
                         f"{timer.number('startLine')}\n")
            else:
                line += "--\n"
            out.append(line)
        return out

    def msgq(self):
        """zorva.msgq"""
        out = []
        kind = gdb.lookup_type("zorva_msg_queue")
        for link in self.links(address_of("zorva_msgq_list")):
            queue = self.record(kind, link - kind["link"].bitpos // 8)
            ring = queue.inner("ring")
            component = ring.number("component")
            out += [f"Queue Name   : {queue.text('name')}\n",
                    f"Component ID : {component} ({self.names[component]})\n",
                    f"Msg Size     : {ring.number('msgSize')} bytes\n",
                    f"Max Depth    : {ring.number('maxDepth')}\n",
                    f"Curr Depth   : {ring.number('currDepth')}\n",
                    f"Max Seen     : {ring.number('maxSeen')}\n\n"]
        return out

    def reports(self):
        """The files' names and what makes their texts."""
        mutex = "_zorvaMutexDbg", "mutex(s)", "Mutex"
        sem = "_zorvaSemDbg", "semaphore(s)", "Semaphore"

        def locks(which, detail):
            registry, what, kind = which
            title = ("Dump all ACTIVE " + ("" if detail else "& LOCKED ") +
                     what)
            return lambda: self.locks(registry, title, kind, detail)

        return {
            "zorva.mutex": locks(mutex, False),
            "zorva.mutex.detail": locks(mutex, True),
            "zorva.sem": locks(sem, False),
            "zorva.sem.detail": locks(sem, True),
            "zorva.mem": self.mem,
            "zorva.mem.detail": self.mem_detail,
            "zorva.thread": self.thread,
            "zorva.timer": lambda: self.timers("_pZorvaTimerList",
                                               "tick_timer"),
            "zorva.hrt": lambda: self.timers("_pZorvaHrtTimerList",
                                             "hrt_timer"),
            "zorva.msgq": self.msgq,
        }


def load_symbols(path, places):
    """Tells gdb of an object file whose sections lie at known places."""
    rest = " ".join(f"-s {name} {where:#x}" for name, where in places.items()
                    if name != ".text")
    gdb.execute(f"add-symbol-file {path} {places['.text']:#x} {rest}",
                to_string=True)


class Arguments(argparse.ArgumentParser):
    """A parser that leaves gdb alive."""

    def error(self, message):
        raise Fault(f"{message}; see: zorva-reports --help")

    def exit(self, status=0, message=None):
        raise Fault(message or "")


class ZorvaReports(gdb.Command):
    """Write the ten reports of zorva from a halted kernel or a core.

zorva-reports DIR [--module zorva.ko] [--types types.o]

DIR is made where it is not there. zorva.ko is the very build that runs, with
its debug information; types.o belongs to the kernel's configuration. Both are
looked for beside this script; "make debugger" puts them there."""

    def __init__(self):
        super().__init__("zorva-reports", gdb.COMMAND_DATA,
                         gdb.COMPLETE_FILENAME)

    def invoke(self, argument, from_tty):
        """Runs the command; what stands in its way is one line."""
        try:
            self.run(gdb.string_to_argv(argument))
        except Fault as fault:
            raise gdb.GdbError(str(fault)) from None
        except gdb.MemoryError as fault:
            raise gdb.GdbError(f"cannot be read: {fault}") from None

    @staticmethod
    def run(argv):
        """Parses the arguments and writes the files."""
        parser = Arguments(prog="zorva-reports", description=__doc__,
                           formatter_class=argparse.RawTextHelpFormatter)
        parser.add_argument("directory", metavar="DIR")
        parser.add_argument("--module", default=f"{HERE}/zorva.ko")
        parser.add_argument("--types", default=f"{HERE}/types.o")
        options = parser.parse_args(argv)
        check(gdb.selected_inferior().pid != 0,
              "no kernel: connect to one (target remote) or load a core")
        gdb.execute("set language c", to_string=True)
        try:
            kernel = Kernel(options.module, options.types)
            os.makedirs(options.directory, exist_ok=True)
            for name, make in kernel.reports().items():
                path = os.path.join(options.directory, name)
                with open(path, "wb") as file:
                    file.write("".join(make()).encode("latin-1"))
                print(path)
        finally:
            gdb.execute("set language auto", to_string=True)


ZorvaReports()
