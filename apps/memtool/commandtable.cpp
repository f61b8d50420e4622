// memtool's commands with their synopses and help texts.
#include "commands.h"

Program memtoolProgram(Device& device) {
    // Each command with the device.
    const auto with = [&device](Result<int> (*command)(Device&, const Arguments&)) {
        return
            [&device, command](const Arguments& arguments) { return command(device, arguments); };
    };
    return {"memtool",
            "Reads and writes the device's memories and talks to the message broker.",
            "MEMORY, VARIABLE and EVENT are names or numbers; an element of an array is\n"
            "VARIABLE[INDEX].  Values are stored exactly as written or refused with the\n"
            "reason: ints in decimal, floats with no more digits than a float holds,\n"
            "bools as true or false, enums by entry name, strings within their capacity,\n"
            "buffers in hexadecimal digits, structs as JSON objects of their members.\n"
            "Exit status: 0 done, 1 the operation failed, 2 the command line is wrong.",
            {
                {"memories",
                 "memtool memories [--json]",
                 "Lists the memories of the catalogue: index, name, number of variables and\n"
                 "whether the memory is present on the device.",
                 {"--json"},
                 {},
                 with(listMemories)},
                {"vars",
                 "memtool vars MEMORY [--json]",
                 "Lists a memory's variables: index, name, type, array length, the values it\n"
                 "takes (min..max; an enum's names; a string's characters; a buffer's bytes)\n"
                 "and change event (id and name).  With --json each row also gives the\n"
                 "capacity of a string in bytes and the list of an enum's names.",
                 {"--json"},
                 {},
                 with(listVariables)},
                {"describe",
                 "memtool describe MEMORY VARIABLE [--json]",
                 "Describes one variable: type, base type, range, default value, array\n"
                 "length, capacity (bytes of a string, the terminator included), the enum's\n"
                 "names and the change event.  With --json: one object with the keys memory,\n"
                 "name, type, baseType, min, max, default, arrayLength, capacity, enum and\n"
                 "event.  Needs no memory on the device.",
                 {"--json"},
                 {},
                 with(describeVariable)},
                {"get",
                 "memtool get MEMORY VARIABLE [VARIABLE...] [--json]",
                 "Prints values as text.  One variable: its value, or every element of an\n"
                 "array one per line (VARIABLE INDEX or VARIABLE[INDEX] for one element).\n"
                 "Several: one line NAME=VALUE each, as `set` takes them.  With --json the\n"
                 "values are typed JSON (an array for a whole array, an object for a\n"
                 "struct); several variables make one object NAME -> value.",
                 {"--json"},
                 {},
                 with(getValue)},
                {"set",
                 "memtool set MEMORY VARIABLE [INDEX] VALUE | memtool set MEMORY NAME=VALUE...",
                 "Stores values through the catalogue's setters, which post the change\n"
                 "events (an unchanged int, float, bool or enum posts nothing).  An array\n"
                 "element needs its INDEX (NAME[INDEX]=VALUE in the second form).  A struct\n"
                 "takes a JSON object of members, each a bare value or an object with\n"
                 "\"value\" (as `get` prints it).  Every value is checked first (range, exact\n"
                 "reading, capacity); if any is refused, all refusals are printed, nothing\n"
                 "is stored and the exit status is 1.",
                 {},
                 {},
                 with(setValue)},
                {"reset",
                 "memtool reset MEMORY VARIABLE [VARIABLE...] | memtool reset MEMORY --all",
                 "Sets variables back to the value that the memory's start-up writes,\n"
                 "through their setters, posting the change events.  Values already at\n"
                 "their default are left alone.  --all resets every variable of the memory\n"
                 "that can be written; read-only ones that differ are named on stderr.",
                 {"--all"},
                 {},
                 with(resetValues)},
                {"dump",
                 "memtool dump [MEMORY...] [--compact]",
                 "Prints the named memories (every memory when none is named) as one JSON\n"
                 "object: memory name -> variable name -> typed value.  The output is\n"
                 "written as the memories are read.",
                 {"--compact"},
                 {},
                 with(dumpMemories)},
                {"load",
                 "memtool load FILE [--dry-run]",
                 "Stores the values of FILE (\"-\" for standard input), a document as `dump`\n"
                 "prints it: one memory or several, all of their variables or some.  Every\n"
                 "value is checked first; if any is wrong, all problems are printed and\n"
                 "nothing is stored.  Values equal to what `dump` prints now are left alone,\n"
                 "so loading the dump of an unchanged unit changes nothing.  --dry-run\n"
                 "prints the values that would be stored, as MEMORY NAME=VALUE, and stores\n"
                 "nothing.",
                 {"--dry-run"},
                 {},
                 with(loadValues)},
                {"preview",
                 "memtool preview FILE [--json]",
                 "Tells what loading the settings document FILE (a \".stp\" file; \"-\" for\n"
                 "standard input) into this release would do to each key, storing nothing\n"
                 "and needing no running service: stored as it is, read from a former name,\n"
                 "former enum entry mapped, clamped to the range, not stored as retired,\n"
                 "kept aside (and why), or skipped (product information).  The document is\n"
                 "applied as the settings service applies it, to a private copy of\n"
                 "MemPersistent.  One line per key, then the count of each outcome; with\n"
                 "--json one object with the keys file, complete, unreadableLines, keys and\n"
                 "counts.  A document that cannot be read whole is read line by line.",
                 {"--json"},
                 {},
                 with(previewDocument)},
                {"post",
                 "memtool post EVENT [--index N]",
                 "Posts an event, given by name or number, to the broker; --index N posts it\n"
                 "for element N of an array (indexed 1).",
                 {},
                 {"--index"},
                 with(postEventCommand)},
                {"watch",
                 "memtool watch [EVENT...] [--values] [--count N] [--timeout SECONDS] [--json]",
                 "Subscribes to the named events (to every event when none is named) and\n"
                 "prints each record as it arrives: \"NAME INDEXED INDEX\", or one JSON object\n"
                 "per line with --json.  With --values each line names the variable and the\n"
                 "value it holds: \"NAME MEMORY.VARIABLE[INDEX] = VALUE\", or with --json the\n"
                 "keys event, memory, variable, index and value.  Runs until interrupted,\n"
                 "until N records were printed, or until SECONDS have passed; fewer than N\n"
                 "records when the time is up gives exit status 1.",
                 {"--json", "--values"},
                 {"--count", "--timeout"},
                 with(watchEvents)},
                {"request",
                 "memtool request MEMORY VARIABLE [--timeout SECONDS]",
                 "Runs a request: sets the bool flag true, posts its change event and waits\n"
                 "until the serving process clears it (default time-out 10 s; 0 waits for\n"
                 "ever).  When it is not cleared in time (or the wait is interrupted), a\n"
                 "flag that memtool set is set back to false, and the exit status is 1.",
                 {},
                 {"--timeout"},
                 with(runRequest)},
                {"serve",
                 "memtool serve [--listen ADDRESS:PORT] [--token TOKEN] [--read-only]",
                 "Serves the inspector, a web page of the device's memories, events and\n"
                 "settings (search, live values, editing with the checks of `set`, plots,\n"
                 "the event log, the user setups, the unit's identity), with a JSON API.\n"
                 "Listens on 127.0.0.1:8765 unless --listen says otherwise (port 0: any\n"
                 "free port).  Every request needs the token, as the header\n"
                 "\"Authorization: Bearer TOKEN\" or the query token=TOKEN; without --token\n"
                 "one is made at random and the page's address with it is printed.\n"
                 "Requests from other sites' pages or to other host names are refused.\n"
                 "--read-only refuses every change.  Runs until Ctrl-C or SIGTERM.",
                 {"--read-only"},
                 {"--listen", "--token"},
                 with(serveInspector)},
                {"names",
                 "memtool names [MEMORY [VARIABLE]] | --events | --commands | --options COMMAND",
                 "Prints bare names, one per line, for shell completion and scripts: the\n"
                 "memories, a memory's variables, the values of an enum or bool variable,\n"
                 "the events, the commands, or a command's options.",
                 {"--events", "--commands"},
                 {"--options"},
                 with(listNames)},
            }};
}
