"""Shows the objects of ZarvoConcurrency in gdb, and lists what runs.

    (gdb) source .../zarvo_gdb.py
    (gdb) print task
    (gdb) zarvo runs

Reads memory and calls nothing in the program: it may have crashed, or hold every lock. Needs gdb 9 or later with Python, the
library's debug data, and GCC's standard library. What cannot be read is shown as <unreadable>; the rest is shown all the same.
"""

import datetime
import itertools
import struct
import time

import gdb
import gdb.printing
import gdb.types

LIBRARY = "Orvane::Internal::"
UNREADABLE = "<unreadable>"
MOST_ITEMS = 10000  # a torn list may have no end
LONGEST_NAME = 1000

# FutureState::StateCode.
STATES = ("NotStarted", "Busy", "Normal", "Cancelling", "Cancelled", "Error")


def readable(read, otherwise=UNREADABLE):
    """What `read` returns, if the memory that it reads is sound."""
    try:
        return read()
    except Exception:  # gdb's own, and those of Python that torn data leads to
        return otherwise


# The standard library.


def pointee(pointer):
    """The object of a shared_ptr, or of what an atomic one holds; None if there is none."""
    address = pointer["_M_ptr"]
    return whole(address) if int(address) != 0 else None


def is_alive(weak):
    """Whether a weak_ptr has an object."""
    counts = weak["_M_refcount"]["_M_pi"]
    return int(counts) != 0 and int(counts["_M_use_count"]) > 0


def loaded(atomic):
    """What a std::atomic holds."""
    for path in (("_M_i",), ("_M_base", "_M_i"), ("_M_b", "_M_p"), ("_M_impl",)):
        value = readable(lambda: follow(atomic, path), None)
        if value is not None:
            return value
    raise ValueError("no atomic")


def follow(value, path):
    for name in path:
        value = value[name]
    return value


def class_of(pointer):
    """The name of the class with which the object was made: it has virtual functions, and their table has a symbol.

    On purpose the object is not looked at: if gdb does not know its class, as one of a callable in a function, it would say so in
    the middle of the output."""
    table = gdb.Value(int(pointer)).cast(gdb.lookup_type("void").pointer().pointer()).dereference()
    symbol = table.format_string(symbols=True)
    begin = symbol.index("<vtable for ") + len("<vtable for ")
    return symbol[begin : symbol.rindex("+")]


def whole(pointer):
    """The object, as the type with which it was made if gdb knows that type."""
    pointer = gdb.Value(int(pointer)).cast(pointer.type.strip_typedefs().target().strip_typedefs().pointer())
    return readable(lambda: pointer.cast(pointer.dynamic_type), pointer).dereference()


def list_items(items):
    """Of a std::list, from its front."""
    kind = items.type.strip_typedefs().template_argument(0)
    end = items["_M_impl"]["_M_node"]
    node = end["_M_next"]
    for _ in range(MOST_ITEMS):
        if int(node) in (0, int(end.address)):
            return
        yield (node + 1).cast(kind.pointer()).dereference()  # behind the two pointers of the node
        node = node["_M_next"]


def vector_items(items):
    first = items["_M_impl"]["_M_start"]
    count = int(items["_M_impl"]["_M_finish"] - first)
    for i in range(min(count, MOST_ITEMS)):
        yield (first + i).dereference()


def linked_items(items):
    """Of the library's IntrusiveList, from its front."""
    kind = items.type.strip_typedefs().template_argument(0)
    end = items["m_end"]
    hook = end["m_next"]
    for _ in range(MOST_ITEMS):
        if int(hook) in (0, int(end.address)):
            return
        yield whole(hook.cast(kind.pointer()))
        hook = hook["m_next"]


def all_readable(items):
    """Those of a list that come before one that cannot be read."""
    found = []
    try:
        for item in items:
            if isinstance(item, gdb.Value):
                item.fetch_lazy()
            found.append(item)
    except Exception:
        pass
    return found


def characters(first, most=LONGEST_NAME):
    """From a pointer to wchar_t, up to the terminator."""
    size = first.type.strip_typedefs().target().sizeof
    memory = gdb.selected_inferior()
    units = []
    for i in range(most):
        unit = memory.read_memory(int(first) + i * size, size).tobytes()
        if not any(unit):
            break
        units.append(unit)
    text = b"".join(units).decode("utf-16-le" if size == 2 else "utf-32-le", errors="replace")
    return "".join(character if character.isprintable() else "?" for character in text)


def wide_text(string):
    """Of a std::wstring."""
    return characters(string["_M_dataplus"]["_M_p"], min(int(string["_M_string_length"]), LONGEST_NAME))


def quoted(text):
    return '"' + text + '"'


def last_name(name):
    """Without those of what it is in."""
    return name.split("<", 1)[0].rsplit("::", 1)[-1]


def enumerator(value):
    name = last_name(str(value))
    return name if name.isidentifier() else f"<no value: {int(value):#x}>"


# Threads and times.


def gdb_number(thread):
    """Of the thread with that id, as gdb counts threads; None if gdb does not know it."""
    for known in gdb.selected_inferior().threads():
        if thread in known.ptid[1:]:
            return known.num
    return None


def thread_text(thread):
    number = readable(lambda: gdb_number(thread), None)
    return f"thread {thread}" + (f" (gdb {number})" if number is not None else "")


def ticks_now():
    """Milliseconds since the system started, as CoarseClock counts them; None if that cannot be found out."""
    try:  # what GetTickCount64 reads, too
        memory = gdb.selected_inferior()
        (multiplier,) = struct.unpack("<I", memory.read_memory(0x7FFE0004, 4).tobytes())
        (count,) = struct.unpack("<Q", memory.read_memory(0x7FFE0320, 8).tobytes())
        return count * multiplier >> 24
    except gdb.MemoryError:
        pass  # not on Windows
    connection = getattr(gdb.selected_inferior(), "connection", None)
    return int(time.monotonic() * 1000) if connection is not None and connection.type == "native" else None


def age(tick):
    now = readable(ticks_now, None)
    return f"since tick {tick}" if now is None else f"for {max(now - tick, 0) / 1000:.1f} s"


def ago(tick):
    now = readable(ticks_now, None)
    return f"at tick {tick}" if now is None else f"{max(now - tick, 0) / 1000:.1f} s ago"


def moment(ticks):
    """Of the system clock, in 100 ns from 1970 on."""
    since_1970 = datetime.timedelta(microseconds=ticks // 10)
    return readable(lambda: f"{datetime.datetime(1970, 1, 1) + since_1970:%Y-%m-%d %H:%M:%S.%f}"[:-3] + " UTC", f"tick {ticks}")


# Runs of tasks and jobs.


def run_of(future):
    """The run that is under way; None if there is none."""
    held = loaded(future["m_cancellationObject"])
    if int(held["_M_ptr"]) == 0:
        return None
    return held["_M_ptr"].cast(gdb.lookup_type(LIBRARY + "Run").pointer()).dereference()


def wait_text(run):
    note = run["ownNote"]
    if int(loaded(note["m_number"])) % 2 != 0:
        return "about to wait, or to go on"
    kind = enumerator(loaded(note["m_kind"]))
    if kind == "None":
        return "in no wait of the library"
    waited_for = int(loaded(note["m_object"]))
    what = f"({waited_for:#x})" if waited_for != 0 else ""
    return f"waits in {kind}{what} {age(int(loaded(note['m_since'])))}"


def asked_text(run):
    asked = int(loaded(run["askedAt"]))
    if not run["m_requested"] and asked == 0:
        return []
    return [f"asked to leave {ago(asked)}" if asked != 0 else "asked to leave"]


def run_parts(run):
    """Where it runs, and what is known of it."""
    return [
        readable(lambda: thread_text(int(run["m_thread"]))),
        readable(lambda: "runs " + age(int(run["startedAt"]))),
        *readable(lambda: asked_text(run), [UNREADABLE]),
        readable(lambda: wait_text(run)),
    ]


def state_of(future):
    number = int(loaded(future["m_state"]))
    return STATES[number] if number < len(STATES) else f"<no state: {number:#x}>"


def future_parts(future):
    parts = [readable(lambda: state_of(future))]
    run = readable(lambda: run_of(future), UNREADABLE)
    if run is UNREADABLE:
        parts.append(UNREADABLE)
    elif run is not None:
        parts += run_parts(run)
    failure = readable(lambda: future["m_exception"]["_M_ptr"], None)
    if failure is not None and int(failure) != 0:
        parts.append(readable(lambda: last_name(class_of(failure))))
    return parts


def future_of_wrapper(state):
    """The FutureState of a TaskWrapper. Whatever its callable, which gdb may not know, it begins with the same two fields."""
    slot = gdb.Value(int(state)).cast(gdb.lookup_type("void").pointer().pointer()) + 1
    return whole(slot.dereference().cast(gdb.lookup_type(LIBRARY + "FutureState").pointer()))


def state_parts(state):
    """Of what a pointer says that a task runs."""
    name = last_name(class_of(state))
    if name == "TaskWrapper":
        return future_parts(future_of_wrapper(state))
    if name == "JobState":
        return future_parts(whole(state)["m_future"])
    return {"NullTaskWrapper": ["empty"], "GroupRunner": ["runs the jobs of its group"]}.get(name, [name])


def task_name(task):
    return characters(task["m_title"]["name"]["_M_elems"][0].address, 30)


def task_parts(task):
    """Of a TaskImpl."""
    parts = readable(lambda: state_parts(task["m_wrapper"]["_M_ptr"]), [UNREADABLE])
    if task["m_cancelled"]:
        parts.append("cancelled")
    return parts


def task_text(task):
    return ", ".join([
        "Task " + readable(lambda: quoted(task_name(task))),
        *readable(lambda: task_parts(task), [UNREADABLE]),
    ])


def path_above(job):
    """The names of the runs and groups that own a job, the outermost first."""
    names = []
    group = pointee(job["m_group"])
    above = pointee(group["m_core"]) if group is not None else pointee(job["m_owner"])
    name = pointee(above["m_name"]) if above is not None else None
    while name is not None and len(names) < 16:
        names.insert(0, wide_text(name["text"]))
        name = pointee(name["above"])
    return names


def job_name(job):
    return " > ".join(readable(lambda: path_above(job), []) + [readable(lambda: characters(job["m_name"]))])


def job_parts(job):
    """Of a JobState."""
    phase = enumerator(loaded(job["m_phase"]))
    if phase == "Ended":
        return [enumerator(job["m_outcome"])]
    run = readable(lambda: run_of(job["m_future"]), None)
    cause = enumerator(job["m_cause"])
    return [phase] + (run_parts(run) if run is not None else []) + ([f"cause {cause}"] if cause != "None" else [])


def job_text(job):
    return ", ".join([
        "Job " + readable(lambda: quoted(job_name(job))),
        *readable(lambda: job_parts(job), [UNREADABLE]),
    ])


# The mutex.

FIFO_IN_LIST = 1  # fifo_mutex::WaitQueue::kInList


def fifo_queue_of(mutex):
    """The owner's thread and its levels, whether it has come in, and the waiting threads, the next one first."""
    queue = pointee(mutex["m_queue"])
    word = int(loaded(queue["m_word"]))
    if word != FIFO_IN_LIST:
        return word >> 32, word & 0xFFFFFFFF, True, []
    threads = [int(thread) for thread in list_items(queue["m_entries"])]
    threads.reverse()
    levels = len(list(itertools.takewhile(lambda thread: thread == threads[0], threads)))
    return threads[0], levels, bool(queue["m_ownerHasComeIn"]), threads[levels:]


def fifo_text(mutex):
    owner, levels, has_come_in, waiting = fifo_queue_of(mutex)
    if owner == 0:
        return "fifo_mutex, free"
    verb = "owned by" if has_come_in else "next is"
    times = f", locked {levels} times" if levels > 1 else ""
    waiters = f", {len(waiting)} waiting" if waiting else ""
    return f"fifo_mutex, {verb} {thread_text(owner)}{times}{waiters}"


# The pool and the schedule.


def queue_text(queue):
    """Of a WorkQueue."""
    running = len(all_readable(list_items(queue["m_running"])))
    queued = len(all_readable(list_items(queue["m_queue"])))
    stopping = ", stopping" if loaded(queue["m_stopping"]) else ""
    return f"{int(queue['m_threadCount'])} workers, {running} running, {queued} queued{stopping}"


def queue_children(queue):
    for title, entries in (("running", queue["m_running"]), ("queued", queue["m_queue"])):
        for i, entry in enumerate(all_readable(list_items(entries))):
            yield f"{title}[{i}]", entry["task"]


def pool_text(core):
    """Of a ThreadPoolCore."""
    growth = readable(lambda: enumerator(loaded(core["m_growth"]["m_state"])))
    return f"Pool, {readable(lambda: queue_text(core['m_queue']))}, growth {growth}"


def scheduled_text(entry):
    task = readable(lambda: pointee(entry["m_task"]["m_impl"]), None)
    start = readable(lambda: moment(int(entry["m_start"]["__d"]["__r"])))
    interval = readable(lambda: int(entry["m_interval"]["__r"]), 0)
    again = f", every {interval / 10_000_000:.3f} s" if interval != 0 else ""
    return f"due {start}{again}: {task_text(task) if task is not None else 'no task'}"


def schedule_children(queue):
    entries = sorted(vector_items(queue["m_heap"]), key=lambda entry: int(entry["m_start"]["__d"]["__r"]))
    for i, entry in enumerate(entries):
        yield f"[{i}]", entry


def schedule_text(queue):
    stopped = ", stopped" if queue["m_stop"] else ""
    return f"Schedule, {len(list(vector_items(queue['m_heap'])))} entries{stopped}"


# The printers: of a type its text, and its children if it has any.


def object_text(of_object, name, member):
    """The text of a handle's object."""

    def text(handle):
        held = pointee(follow(handle, member))
        return of_object(held) if held is not None else f"{name}, empty"

    return text


def notifier_text(object_):
    notifier = object_["m_notifier"]
    if not is_alive(notifier):
        return "no notifier"
    return "notifier " + readable(lambda: last_name(class_of(notifier["_M_ptr"])))


def cancellation_text(object_):
    asked = readable(lambda: "asked to leave" if object_["m_requested"] else "not asked")
    killable = ["killable"] if readable(lambda: bool(object_["m_killable"]), False) else []
    thread = readable(lambda: thread_text(int(object_["m_threadId"])))
    return ", ".join(["Cancellation", thread, asked, readable(lambda: notifier_text(object_)), *killable])


def waiting_threads(mutex):
    for i, thread in enumerate(fifo_queue_of(mutex)[3]):
        yield f"waiter[{i}]", thread_text(thread)


PRINTED = {
    LIBRARY + "Task": (object_text(task_text, "Task", ("m_impl",)), None),
    LIBRARY + "TaskImpl": (task_text, None),
    "Orvane::JobHandle": (object_text(job_text, "Job", ("m_job", "m_state")), None),
    LIBRARY + "JobRef": (object_text(job_text, "Job", ("m_state",)), None),
    LIBRARY + "JobState": (job_text, None),
    LIBRARY + "FutureState": (lambda future: "Future, " + ", ".join(future_parts(future)), None),
    LIBRARY + "Run": (lambda run: ", ".join(["Run", *run_parts(run), readable(lambda: notifier_text(run))]), None),
    LIBRARY + "CancellationObject": (cancellation_text, None),
    "Orvane::fifo_mutex": (fifo_text, waiting_threads),
    LIBRARY + "WorkQueue": (lambda queue: "Work queue, " + queue_text(queue), queue_children),
    LIBRARY + "ThreadPoolCore": (pool_text, lambda core: queue_children(core["m_queue"])),
    LIBRARY + "ScheduledTask": (scheduled_text, None),
    LIBRARY + "ScheduledTaskQueue": (schedule_text, schedule_children),
}


class Printer:
    def __init__(self, value, text):
        self.value = value
        self.text = text

    def to_string(self):
        return readable(lambda: self.text(self.value))


class PrinterWithChildren(Printer):
    def __init__(self, value, text, items):
        super().__init__(value, text)
        self.items = items

    def children(self):
        return iter(all_readable(readable(lambda: self.items(self.value), [])))


def names_of(kind):
    """Of a class of the library and its bases, without template arguments, the nearest first."""
    name = kind.tag
    if kind.code != gdb.TYPE_CODE_STRUCT or name is None or not name.startswith("Orvane::"):
        return
    yield name.split("<", 1)[0]
    for field in kind.fields():
        if field.is_base_class:
            yield from names_of(gdb.types.get_basic_type(field.type))


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("zarvo")

    def __call__(self, value):
        for name in readable(lambda: list(names_of(gdb.types.get_basic_type(value.type))), []):
            if name in PRINTED:
                text, items = PRINTED[name]
                return Printer(value, text) if items is None else PrinterWithChildren(value, text, items)
        return None


# What the process has one of.


class NoDebugData(gdb.GdbError):
    def __init__(self):
        super().__init__("The library is not loaded, or gdb has not found its debug data.")


def one_and_only(name):
    """A NeverDestroyed object of a source file."""
    symbol = gdb.lookup_static_symbol(LIBRARY + "(anonymous namespace)::" + name)
    if symbol is None:
        raise NoDebugData()
    return symbol.value()["m_object"]


def shards(function):
    """The elements of the array that a function keeps."""
    symbol = gdb.lookup_global_symbol(LIBRARY + function) or gdb.lookup_global_symbol(LIBRARY + function + "()")
    if symbol is None:
        raise NoDebugData()
    for variable in gdb.block_for_pc(int(symbol.value().address)):
        if variable.name == "shards":
            array = variable.value()["m_object"]["_M_elems"]
            first, last = array.type.strip_typedefs().range()
            return [array[i] for i in range(first, last + 1)]
    raise NoDebugData()


def the_pool():
    return pointee(loaded(one_and_only("g_core")))


def the_schedule():
    return pointee(loaded(one_and_only("g_queue")))


# zarvo runs.


class Row:
    """A thread, and what it is in the middle of."""

    def __init__(self, thread, name, parts, since):
        self.thread = thread
        self.name = name
        self.parts = parts
        self.since = since


def task_row(task):
    """Of a RunningTask; None of one that is in a job: that has a row of its own."""
    entry = task["m_entry"]
    if not int(entry["isTask"]):
        return None
    run = readable(lambda: run_of(pointee(task["m_future"])), None)
    parts = run_parts(run)[2:] if run is not None else []
    name = readable(lambda: characters(entry["name"]))
    return Row(int(entry["thread"]), name, parts, int(entry["startedAt"]))


def job_row(job):
    """Of a JobState; None unless it is in its run."""
    run = run_of(job["m_future"])
    return Row(int(run["m_thread"]), job_name(job), run_parts(run)[2:], int(run["startedAt"])) if run is not None else None


def rows_of_runs():
    for shard in shards("RunningTaskShards"):
        for task in all_readable(linked_items(shard["running"])):
            yield readable(lambda: task_row(task), None)
    for shard in shards("JobShards"):
        for listed in (shard["live"], shard["beingAsked"]):
            for job_or_group in all_readable(linked_items(listed)):
                yield readable(lambda: job_row(job_or_group), None)


def idle_rows(busy):
    pool = readable(the_pool, None)
    if pool is None:
        return
    for record in all_readable(list_items(pool["m_threads"]["m_threads"])):
        if int(record["m_id"]) not in busy:
            yield Row(int(record["m_id"]), "", ["runs no task"], None)


def run_rows():
    rows = sorted((row for row in rows_of_runs() if row is not None), key=lambda row: row.since)
    return rows + all_readable(idle_rows({row.thread for row in rows}))


class Zarvo(gdb.Command):
    """What the library ZarvoConcurrency does in this process."""

    def __init__(self):
        super().__init__("zarvo", gdb.COMMAND_STATUS, gdb.COMPLETE_NONE, True)


class Runs(gdb.Command):
    """Lists the runs that are under way, the longest first, then the pool's other threads: worker, gdb's number of it, since
when, run, state."""

    def __init__(self):
        super().__init__("zarvo runs", gdb.COMMAND_STATUS)

    def invoke(self, argument, from_tty):
        print(f"{'worker':>8} {'gdb':>4} {'since':<20} run")
        for row in run_rows():
            number = readable(lambda: gdb_number(row.thread), None)
            since = age(row.since) if row.since is not None else ""
            what = ", ".join(([quoted(row.name)] if row.since is not None else []) + row.parts)
            print(f"{row.thread:>8} {number if number is not None else '-':>4} {since:<20} {what}")


class Pool(gdb.Command):
    """Shows the global pool: its counts, what runs, what is queued."""

    def __init__(self):
        super().__init__("zarvo pool", gdb.COMMAND_STATUS)

    def invoke(self, argument, from_tty):
        show(the_pool(), "There is no pool.", pool_text, lambda core: queue_children(core["m_queue"]))


class Schedule(gdb.Command):
    """Shows what the scheduler holds, the earliest start first."""

    def __init__(self):
        super().__init__("zarvo schedule", gdb.COMMAND_STATUS)

    def invoke(self, argument, from_tty):
        show(the_schedule(), "There is no scheduler.", schedule_text, schedule_children)


def show(object_, otherwise, text, items):
    """An object and its children, a line each."""
    if object_ is None:
        print(otherwise)
        return
    print(readable(lambda: text(object_)))
    for name, child in all_readable(items(object_)):
        print(f"  {name}: {readable(lambda: child.format_string())}")


gdb.printing.register_pretty_printer(None, Printers(), replace=True)
for command in (Zarvo, Runs, Pool, Schedule):
    command()
