"""Every generation checks the model against the release snapshots of its folder releases/ and
refuses a change that would lose stored settings or break the event numbering, naming the
snapshot, the memory, the variable or entry and what to declare; a changed default is a note.

The small "after" model of gen/tests/migration declares every kind of change against its release
1.0.0 (the "before" model); each test breaks one declaration in a copy and reads the refusal. The
device's model is tried as a new user would change it. snapshot.py records releases."""

import pathlib
import re
import subprocess
import sys
import unittest

from modelcopy import GEN_ROOT, GENERATOR, ModelCopy

SNAPSHOT = GEN_ROOT / "generator" / "snapshot.py"
MIGRATION = GEN_ROOT / "tests" / "migration"
PERSISTENT = "memories/00-MemPersistent.toml"
SNAPSHOT_FILE = "releases/1.0.0.json"


class AfterModelTest(ModelCopy):
    source = MIGRATION / "after"
    refuse_options = ("--no-device-facts",)

    def snapshot_path(self):
        return str(self.model / SNAPSHOT_FILE)

    def test_every_declared_change_generates_with_a_note_of_the_changed_default(self):
        result = self.run_generator("--no-device-facts")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr.splitlines(), [
            f"note: {self.snapshot_path()}: MemPersistent: variable \"Title\": the default changed "
            "from \"Studio\" to \"Stage\" since release 1.0.0; units in the field keep the value "
            "they stored"])
        history = (self.out / "history.cpp").read_text()
        for row in ('{0, 4, "Volume"},', "{0, 7},", '{1, "Teal", 1},', '{2, "Zenith", 1},',
                    '{0, "Legacy", 11, "the unit always works the new way"},'):
            self.assertIn(row, history)
        self.assertIn("VarLegacyChanged = 11,", (self.out / "event" / "settings-service" / "eventid.h").read_text())

    # a. a persistent variable gone
    def test_a_renamed_variable_without_formerly(self):
        self.edit(PERSISTENT, ', formerly = ["Volume"]', "")
        self.assert_refused(
            f"{self.snapshot_path()}: MemPersistent: variable \"Volume\": release 1.0.0 stored it "
            "and it is gone; declare formerly = [\"Volume\"] on the variable that took its place, "
            "or retire it: retired = [{ name = \"Volume\", event = 7, reason = \"...\" }] in "
            "00-MemPersistent.toml",
            f"{self.snapshot_path()}: events: event 7: was \"VarVolumeChanged\" in release 1.0.0 "
            "and is \"VarLoudnessChanged\" now")

    def test_a_removed_variable_that_is_not_retired(self):
        self.edit(PERSISTENT, 'retired = [\n    { name = "Legacy", event = 11, reason = "the unit '
                              'always works the new way" },\n]', "")
        self.edit("events.toml", "fixed = [", "foreign = [{ id = 11, name = \"VarLegacyChanged\" }]"
                                              "\nfixed = [")
        self.assert_refused(f"{self.snapshot_path()}: MemPersistent: variable \"Legacy\": release "
                            "1.0.0 stored it and it is gone; declare formerly = [\"Legacy\"]")

    def test_a_variable_that_left_the_persistent_memory(self):
        self.edit(PERSISTENT, '    { name = "Brightness", type = "int", offset = 0, min = "0", '
                              'max = "10", default = 5, event = 6 },\n', "")
        self.edit(PERSISTENT, "reserved = [", "reserved = [\n    { offset = 0, length = 4, note "
                                              "= \"moved\" },")
        self.edit("memories/03-MemGuiLocal.toml", "size = 1", "size = 8")
        self.edit("memories/03-MemGuiLocal.toml", "event = 21 },", "event = 21 },\n    { name = "
                  "\"Brightness\", type = \"int\", offset = 4, event = 6 },")
        self.assert_refused("MemPersistent: variable \"Brightness\": release 1.0.0 stored it and "
                            "it is gone (it is in MemGuiLocal now, which keeps no settings)")

    # b. a name reused
    def test_a_retired_name_taken_by_another_variable(self):
        self.edit("memories/03-MemGuiLocal.toml", "size = 1", "size = 2")
        self.edit("memories/03-MemGuiLocal.toml", "event = 21 },", "event = 21 },\n    { name = "
                  "\"Legacy\", type = \"bool\", offset = 1, event = 36 },")
        self.assert_refused("retired variable \"Legacy\": the name is used by a variable of "
                            "MemGuiLocal; a retired name can never be used again")

    def test_a_former_name_taken_by_another_variable(self):
        self.edit("memories/03-MemGuiLocal.toml", "size = 1", "size = 2")
        self.edit("memories/03-MemGuiLocal.toml", "event = 21 },", "event = 21 },\n    { name = "
                  "\"Volume\", type = \"bool\", offset = 1, event = 36 },")
        self.assert_refused("variable \"Loudness\": former name \"Volume\" is the name of a "
                            "variable of MemGuiLocal: a name stays with what it named")

    def test_a_name_retired_in_a_release_taken_again(self):
        # Record this model as release 1.1.0, then bring Legacy back as a new variable.
        record = subprocess.run([sys.executable, "-B", str(SNAPSHOT), "--model", str(self.model),
                                 "--version", "1.1.0"], capture_output=True, text=True)
        self.assertEqual(record.returncode, 0, record.stderr)
        self.edit(PERSISTENT, 'retired = [\n    { name = "Legacy", event = 11, reason = "the unit '
                              'always works the new way" },\n]', "")
        self.edit(PERSISTENT, '    { offset = 20, length = 1, note = "the byte of the retired '
                              'Legacy" },\n', "")
        self.edit(PERSISTENT, '    { name = "Lenses"', '    { name = "Legacy", type = "bool", '
                                                      'offset = 20, event = 11 },\n    { name = "Lenses"')
        self.assert_refused(f"{self.model / 'releases/1.1.0.json'}: MemPersistent: retired "
                            "variable \"Legacy\": the name was retired in release 1.1.0 and can "
                            "never be used again; the variable \"Legacy\" of MemPersistent needs "
                            "another name")

    # c. an enum entry gone
    def test_a_renamed_entry_without_formerly(self):
        self.edit("enums.toml", 'formerly = { Teal = "Cyan" }\n', "")
        self.assert_refused(
            f"{self.snapshot_path()}: MemPersistent: variable \"KnobColour\": entry \"Teal\" of "
            "enum Colour (release 1.0.0) is gone; declare formerly = { Teal = \"<the entry it is "
            "now>\" } on enum Colour in enums.toml")

    def test_a_renamed_entry_of_a_struct_member_without_formerly(self):
        self.edit("enums.toml", 'formerly = { Zenith = "Apex" }\n', "")
        self.assert_refused("MemPersistent: variable \"Lenses\": entry \"Zenith\" of enum Maker "
                            "(release 1.0.0) is gone; declare formerly = { Zenith = ")

    # d. a narrowed range
    def test_a_narrowed_range_without_out_of_range(self):
        self.edit(PERSISTENT, ', out_of_range = "clamp"', "")
        self.assert_refused(
            f"{self.snapshot_path()}: MemPersistent: variable \"Speed\": its range 0..20 of "
            "release 1.0.0 narrowed to 0..10; declare out_of_range = \"clamp\" (a stored value "
            "outside becomes the nearest bound) or out_of_range = \"keep-aside\" (it is kept "
            "aside) on the variable in 00-MemPersistent.toml")

    def test_a_raised_minimum_without_out_of_range(self):
        self.edit(PERSISTENT, '{ name = "Brightness", type = "int", offset = 0, min = "0", max = '
                              '"10"', '{ name = "Brightness", type = "int", offset = 0, min = "1", '
                                      'max = "10"')
        self.assert_refused("variable \"Brightness\": its range 0..10 of release 1.0.0 narrowed "
                            "to 1..10")

    # e. a changed type, a shorter array, a smaller capacity, a struct that lost a member
    def test_a_changed_type(self):
        self.edit(PERSISTENT, '{ name = "Brightness", type = "int", offset = 0, min = "0", max = '
                              '"10", default = 5,', '{ name = "Brightness", type = "float", '
                                                    'offset = 0, min = "0", max = "10", default = 5,')
        self.assert_refused(
            f"{self.snapshot_path()}: MemPersistent: variable \"Brightness\": its type int became "
            "float since release 1.0.0; give the variable a new name and event and retire the old "
            "one: retired = [{ name = \"Brightness\", event = 6, reason = \"...\" }]")

    def test_a_renamed_enum_type(self):
        self.edit("enums.toml", 'name = "Colour"', 'name = "Shade"')
        self.edit(PERSISTENT, 'type = "Colour"', 'type = "Shade"')
        self.assert_refused("variable \"KnobColour\": its type Colour became Shade since release "
                            "1.0.0")

    def test_a_shorter_array(self):
        self.edit(PERSISTENT, 'type = "Lens", count = 2', 'type = "Lens", count = 1')
        self.edit(PERSISTENT, "reserved = [", "reserved = [\n    { offset = 96, length = 16, "
                                              "note = \"the second lens\" },")
        self.assert_refused("variable \"Lenses\": its array of 2 became 1 since release 1.0.0")

    def test_a_smaller_capacity(self):
        self.edit(PERSISTENT, 'type = "string", length = 16, offset = 21',
                  'type = "string", length = 8, offset = 21')
        self.edit(PERSISTENT, "reserved = [", "reserved = [\n    { offset = 29, length = 8, "
                                              "note = \"the end of the title\" },")
        self.assert_refused("variable \"Title\": its capacity of 16 bytes became 8 since release "
                            "1.0.0")

    def test_a_struct_that_lost_or_renamed_a_member(self):
        self.edit("structs.toml", '{ name = "LensName", type = "string", length = 12 }',
                  '{ name = "LensLabel", type = "string", length = 12 }')
        self.assert_refused("variable \"Lenses\": its struct Lens lost the member \"LensName\" "
                            "since release 1.0.0")

    # f. an event id changed
    def test_a_variable_whose_event_changed(self):
        self.edit(PERSISTENT, "default = 5, event = 6 }", "default = 5, event = 36 }")
        self.edit("events.toml", "fixed = [", "foreign = [{ id = 6, name = \"VarElsewhereChanged\" "
                                              "}]\nfixed = [")
        self.assert_refused(
            f"{self.snapshot_path()}: MemPersistent: variable \"Brightness\": its event id was 6 "
            "in release 1.0.0 and is 36 now; other programs of the device rely on the numbering: "
            "keep event = 6")

    def test_a_variable_of_another_memory_whose_event_changed(self):
        self.edit("memories/03-MemGuiLocal.toml", "event = 21", "event = 36")
        self.edit("events.toml", "fixed = [", "foreign = [{ id = 21, name = "
                                              "\"VarElsewhereChanged\" }]\nfixed = [")
        self.assert_refused("MemGuiLocal: variable \"FactoryReset\": its event id was 21 in "
                            "release 1.0.0 and is 36 now")

    def test_a_retired_variable_whose_event_is_not_the_released_one(self):
        self.edit(PERSISTENT, 'name = "Legacy", event = 11', 'name = "Legacy", event = 36')
        self.edit("events.toml", "fixed = [", "foreign = [{ id = 11, name = \"VarElsewhereChanged\" "
                                              "}]\nfixed = [")
        self.assert_refused("MemPersistent: retired variable \"Legacy\": its event id was 11 in "
                            "release 1.0.0; declare event = 11")


class DeviceModelTest(ModelCopy):
    """The device's model changed as a new user would, without declaring anything."""
    source = GEN_ROOT / "model"
    refuse_options = ("--no-device-facts",)

    def test_the_device_model_passes_against_its_releases(self):
        for options in ((), ("--no-device-facts",)):
            result = self.run_generator(*options)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertEqual(result.stderr, "")

    def test_a_renamed_persistent_variable(self):
        self.edit(PERSISTENT, 'name = "SoundVolume"', 'name = "SoundLevel"')
        self.edit("subscriptions.toml", "VarSoundVolumeChanged", "VarSoundLevelChanged")
        self.assert_refused("releases/1.0.0.json: MemPersistent: variable \"SoundVolume\": "
                            "release 1.0.0 stored it and it is gone; declare formerly = "
                            "[\"SoundVolume\"]")
        self.edit(PERSISTENT, 'name = "SoundLevel"', 'name = "SoundLevel", formerly = '
                                                     '["SoundVolume"]')
        result = self.run_generator("--no-device-facts")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertRegex((self.out / "history.cpp").read_text(), r'\{0, \d+, "SoundVolume"\},')

    def test_a_renamed_enum_entry(self):
        self.edit("enums.toml", '"Cyan", "Magenta", "Purple", "Off",',
                  '"Teal", "Magenta", "Purple", "Off",')
        self.assert_refused("releases/1.0.0.json: MemPersistent: variable \"KnobColor\": entry "
                            "\"Cyan\" of enum KnobColor (release 1.0.0) is gone", options=())

    def test_a_narrowed_range(self):
        self.edit(PERSISTENT, '"DisplayBrightness", type = "int", offset = 8, min = "0", max = '
                              '"10"', '"DisplayBrightness", type = "int", offset = 8, min = "0", '
                                      'max = "8"')
        self.assert_refused("variable \"DisplayBrightness\": its range 0..10 of release 1.0.0 "
                            "narrowed to 0..8", options=())

    def test_a_changed_type(self):
        self.edit(PERSISTENT, '"DisplayBrightness", type = "int", offset = 8, min = "0", max = '
                              '"10", default = 7', '"DisplayBrightness", type = "float", offset = '
                                                   '8, min = "0", max = "10", default = 7')
        self.assert_refused("variable \"DisplayBrightness\": its type int became float since "
                            "release 1.0.0", options=())


class SnapshotTest(ModelCopy):
    source = MIGRATION / "before"

    def record(self, *options):
        return subprocess.run([sys.executable, "-B", str(SNAPSHOT), "--model", str(self.model),
                               *options], capture_output=True, text=True)

    def test_the_after_model_holds_the_snapshot_of_the_before_model(self):
        result = self.record("--version", "1.0.0")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout, f"{self.model / SNAPSHOT_FILE}: recorded release 1.0.0\n")
        self.assertEqual((self.model / SNAPSHOT_FILE).read_text(),
                         (MIGRATION / "after" / SNAPSHOT_FILE).read_text())

    def test_a_snapshot_is_history(self):
        self.assertEqual(self.record("--version", "1.0.0").returncode, 0)
        again = self.record("--version", "1.0.0")
        self.assertEqual((again.returncode, again.stdout),
                         (0, f"{self.model / SNAPSHOT_FILE}: unchanged\n"))
        self.edit(PERSISTENT, 'default = "Studio"', 'default = "Stage"')
        changed = self.record("--version", "1.0.0")
        self.assertEqual(changed.returncode, 1)
        self.assertIn("exists with other content; a shipped release's snapshot is history",
                      changed.stderr)
        self.assertEqual(self.record("--version", "1.0.0", "--replace").returncode, 0)
        self.assertIn('"default": "Stage"', (self.model / SNAPSHOT_FILE).read_text())
        older = self.record("--version", "0.9.0")
        self.assertEqual(older.returncode, 1)
        self.assertIn("0.9.0 is older than the latest snapshot, 1.0.0", older.stderr)

    def test_the_version_is_the_projects_by_default(self):
        cmake = (GEN_ROOT.parent / "CMakeLists.txt").read_text()
        version = re.search(r"project\(\s*[\w-]+\s+VERSION\s+([\d.]+)", cmake).group(1)
        result = self.record()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue((self.model / "releases" / f"{version}.json").exists())

    def test_a_model_that_breaks_a_recorded_release_is_not_recorded(self):
        self.assertEqual(self.record("--version", "1.0.0").returncode, 0)
        self.edit(PERSISTENT, 'name = "Volume"', 'name = "Level"')
        self.edit("subscriptions.toml", "VarVolumeChanged", "VarLevelChanged")
        result = self.record("--version", "1.1.0")
        self.assertEqual(result.returncode, 1)
        self.assertIn("variable \"Volume\": release 1.0.0 stored it and it is gone", result.stderr)
        self.assertFalse((self.model / "releases" / "1.1.0.json").exists())

    def test_a_file_that_is_not_a_snapshot_is_refused(self):
        (self.model / "releases").mkdir()
        (self.model / "releases" / "latest.json").write_text("{}")
        result = subprocess.run([sys.executable, "-B", str(GENERATOR), "--no-device-facts",
                                 str(self.model), str(self.out)], capture_output=True, text=True)
        self.assertEqual(result.returncode, 1)
        self.assertIn("latest.json: a release snapshot is named <MAJOR.MINOR.PATCH>.json",
                      result.stderr)


if __name__ == "__main__":
    unittest.main()
