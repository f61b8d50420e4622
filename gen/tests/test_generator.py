"""The generator refuses broken models, naming the file, the entry and the reason or the broken
binding fact, and writes nothing then. The binding facts are those of the device's latest
release snapshot."""

import json
import os
import pathlib
import re
import shutil
import sys
import tempfile
import unittest

from modelcopy import GEN_ROOT, ModelCopy

sys.path.insert(0, str(GEN_ROOT / "generator"))
import checks  # noqa: E402
import model as model_module  # noqa: E402

PERSISTENT = "memories/00-MemPersistent.toml"


class GeneratorTest(ModelCopy):
    source = GEN_ROOT / "model"

    def test_the_model_generates(self):
        result = self.run_generator()
        self.assertEqual(result.returncode, 0, result.stderr)
        for name in ("event/settings-service/eventid.h", "catalogue/settings-service/records.h",
                     "tables.cpp", "memories.cpp", "catalogue.json"):
            self.assertTrue((self.out / name).exists(), name)

    def test_the_start_and_log_policy_come_from_the_model(self):
        self.edit("memories/17-MemTestautomation.toml", "start = \"zeroed\"\n", "")
        self.edit("memories/19-MemApp.toml", "fill = \"LogAll\"", "fill = \"Warn\"")
        self.edit("memories/19-MemApp.toml", "default = \"LogAll\"", "default = \"Warn\"", count=17)
        # The device's facts pin the service's level at offset 20 of MemApp.
        self.edit("catalogue.toml", "variable = \"AppSettingsManagerLogLevel\"",
                  "variable = \"AppCameraLogLevel\"")
        result = self.run_generator("--no-device-facts")
        self.assertEqual(result.returncode, 0, result.stderr)
        memories = (self.out / "memories.cpp").read_text()
        self.assertIn("{&segmentTestautomation, &gMemTestautomation, DEFAULTSTestautomation, "
                      "MemoryStart::Defaults, 0},", memories)
        self.assertIn("{&segmentApp, &gMemApp, DEFAULTSApp, MemoryStart::Fill, 6},", memories)
        self.assertIn("const VariablePlace SERVICE_LOG_LEVEL = {19, 16};", memories)

    def test_the_log_levels_come_from_the_model(self):
        result = self.run_generator()
        self.assertEqual(result.returncode, 0, result.stderr)
        header = (self.out / "log" / "settings-service" / "loglevel.h").read_text()
        self.assertIn("enum LogLevel : int {\n    DebugAll = 0,\n    DebugMost = 1,\n"
                      "    DebugLight = 2,\n    LogAll = 3,\n    LogMost = 4,\n    LogLight = 5,\n"
                      "    Warn = 6,\n    Error = 7,\n};", header)

    def test_only_changed_outputs_are_rewritten(self):
        self.assertEqual(self.run_generator().returncode, 0)
        header, memories = self.out / "log" / "settings-service" / "loglevel.h", self.out / "memories.cpp"
        for path in (header, memories):
            os.utime(path, (1, 1))
        self.edit(PERSISTENT, "min = \"1\", max = \"4\", default = 2, event = 173",
                  "min = \"1\", max = \"4\", default = 3, event = 173")
        self.assertEqual(self.run_generator().returncode, 0)
        self.assertEqual(header.stat().st_mtime, 1)
        self.assertNotEqual(memories.stat().st_mtime, 1)

    def test_a_changed_record_size(self):
        self.edit(PERSISTENT, "size = 1136", "size = 1140")
        self.edit(PERSISTENT, "reserved = [", "reserved = [\n    { offset = 1136, length = 4, note = \"grown\" },")
        self.assert_refused("binding fact \"memory table\"", "MemPersistent must be 1136 bytes long",
                            "the device's facts are those of release 1.0.0",
                            str(GEN_ROOT / "model" / "releases" / "1.0.0.json"))

    def test_a_missing_variable(self):
        self.edit("memories/18-MemDebug.toml", "variables = [", "reserved = [{ offset = 0, length = 360, note = \"x\" }]\nvariables = [")
        path = self.model / "memories/18-MemDebug.toml"
        text = path.read_text()
        event = re.search(r"name = \"DebugIntList\".*event = (\d+)", text).group(1)
        path.write_text(re.sub(r"    \{ name = \"DebugIntList\".*\},\n", "", text))
        self.edit("events.toml", "foreign = [",
                  f"foreign = [\n    {{ id = {event}, name = \"VarDebugIntListChanged\" }},")
        self.assert_refused("binding fact \"memory table\"", "MemDebug must hold 1 variables")

    def test_persistent_names_out_of_order(self):
        self.edit(PERSISTENT, "name = \"AUXTorque\"", "name = \"ZZTorque\"")
        self.assert_refused("binding fact \"persistent variable names\"",
                            "variable 0 must be \"AUXTorque\"")

    def test_a_telling_row_moved(self):
        self.edit(PERSISTENT, "offset = 644, event = 269", "offset = 644, event = 928")
        self.edit("events.toml", "{ id = 928, name = \"VarUserSetupExportChanged\" }",
                  "{ id = 269, name = \"VarUserSetupExportChanged\" }")
        self.assert_refused("binding fact \"telling rows of MemPersistent\"",
                            "BluetoothPower must have event 269")

    def test_a_default_out_of_range(self):
        self.edit(PERSISTENT, "min = \"1\", max = \"4\", default = 2, event = 173",
                  "min = \"1\", max = \"4\", default = 5, event = 173")
        self.assert_refused("binding fact \"defaults within range\"", "AUXTorque")

    def test_a_float_with_only_a_maximum_rejects_a_zero_default(self):
        self.edit("memories/02-MemDistanceMeasure.toml", "max = \"25\", default = 12.5",
                  "max = \"25\", default = 0")
        self.assert_refused("binding fact \"defaults within range\"", "CdmMaxRange",
                            "\"0.000000\"")

    def test_a_wrong_enum_count(self):
        self.edit("enums.toml", "entries = [\n    \"Default\", \"Filter\", \"Distance\",",
                  "entries = [\n    \"Default\", \"Filter\", \"Distance\", \"Extra\",")
        self.assert_refused("binding fact \"enum table\"", "CinefadeDisplayMode with 3 entries")

    def test_a_moved_struct_member(self):
        self.edit("structs.toml", "name = \"TableEntryFlags\", type = \"int\"",
                  "name = \"TableEntryFlags\", type = \"bool\"")
        self.assert_refused("binding fact \"example struct members\"",
                            "ScaleValues.TableEntryFlags must be of type int")

    def test_a_missing_subscription_event(self):
        self.edit("subscriptions.toml", "\"VarCtmDampFactorChanged\"", "\"VarCtmDampingChanged\"")
        self.assert_refused("binding fact \"subscription list\"", "no event \"VarCtmDampingChanged\"")

    def test_the_service_log_level_moved(self):
        path = self.model / "memories/19-MemApp.toml"
        text = path.read_text()
        text = text.replace("AppSettingsManagerLogLevel", "AppSwapLogLevel")
        text = text.replace("AppMessageBrokerLogLevel", "AppSettingsManagerLogLevel")
        path.write_text(text.replace("AppSwapLogLevel", "AppMessageBrokerLogLevel"))
        self.assert_refused("binding fact \"log levels of MemApp\"",
                            "AppSettingsManagerLogLevel must lie at offset 20")

    def test_the_service_log_level_named_elsewhere_in_mem_app(self):
        self.edit("catalogue.toml", "variable = \"AppSettingsManagerLogLevel\"",
                  "variable = \"AppGuiLogLevel\"")
        self.assert_refused("binding fact \"log levels of MemApp\"",
                            "AppGuiLogLevel must lie at offset 20")

    def test_a_missing_log_table(self):
        self.edit("catalogue.toml", "[log]", "[logging]")
        self.assert_refused("catalogue.toml", "log:", "needs the table [log]")

    def test_a_log_level_enum_that_does_not_exist(self):
        self.edit("catalogue.toml", "levels = \"LogLevel\"", "levels = \"Verbosity\"")
        self.assert_refused("catalogue.toml", "log.levels", "there is no enum \"Verbosity\"",
                            "check \"log-level enum\"")

    def test_a_log_level_that_is_no_identifier(self):
        self.edit("enums.toml", "\"DebugAll\", \"DebugMost\"", "\"Debug All\", \"DebugMost\"")
        self.assert_refused("enums.toml", "enum \"LogLevel\"",
                            "entry \"Debug All\" must be an identifier", "check \"log-level enum\"")

    def test_a_service_log_level_in_a_memory_that_does_not_exist(self):
        self.edit("catalogue.toml", "{ memory = \"MemApp\", variable = \"AppSettingsManagerLogLevel\" }",
                  "{ memory = \"MemApplication\", variable = \"AppSettingsManagerLogLevel\" }")
        self.assert_refused("catalogue.toml", "log.service", "there is no memory \"MemApplication\"",
                            "check \"service log level\"")

    def test_a_service_log_level_that_does_not_exist(self):
        self.edit("catalogue.toml", "variable = \"AppSettingsManagerLogLevel\"",
                  "variable = \"AppSettingsLogLevel\"")
        self.assert_refused("catalogue.toml", "log.service",
                            "MemApp has no variable \"AppSettingsLogLevel\"",
                            "check \"service log level\"")

    def test_a_service_log_level_of_another_type(self):
        self.edit("catalogue.toml", "{ memory = \"MemApp\", variable = \"AppSettingsManagerLogLevel\" }",
                  "{ memory = \"MemPersistent\", variable = \"AUXTorque\" }")
        self.assert_refused("catalogue.toml", "log.service",
                            "AUXTorque must be a single LogLevel, not a int",
                            "check \"service log level\"")

    def test_a_default_in_a_memory_that_starts_zeroed(self):
        self.edit("memories/06-MemLensMarkers.toml", "name = \"FocusMarkerHit\", type = \"bool\", offset = 1,",
                  "name = \"FocusMarkerHit\", type = \"bool\", offset = 1, default = true,")
        self.assert_refused("06-MemLensMarkers.toml", "variable \"FocusMarkerHit\"",
                            "MemLensMarkers starts zeroed; its variables take no default",
                            "check \"zeroed start\"")

    def test_a_fill_value_that_is_no_entry(self):
        self.edit("memories/19-MemApp.toml", "fill = \"LogAll\"", "fill = \"Loud\"")
        self.assert_refused("19-MemApp.toml", "fill:", "\"Loud\" is not an entry of LogLevel",
                            "check \"filled start\"")

    def test_a_default_that_differs_from_the_fill_value(self):
        self.edit("memories/19-MemApp.toml", "offset = 4, default = \"LogAll\"",
                  "offset = 4, default = \"Warn\"")
        self.assert_refused("19-MemApp.toml", "variable \"AppGuiLogLevel\"",
                            "every entry at LogAll; the default must say the same",
                            "check \"filled start\"")

    def test_a_filled_memory_with_a_variable_of_another_type(self):
        self.edit("memories/19-MemApp.toml",
                  "{ name = \"AppGuiLogLevel\", type = \"LogLevel\", offset = 4, default = \"LogAll\",",
                  "{ name = \"AppGuiLogLevel\", type = \"int\", offset = 4,")
        self.assert_refused("19-MemApp.toml", "variables:",
                            "MemApp starts filled; its variables must be single values of one enum",
                            "check \"filled start\"")

    def test_an_unknown_start(self):
        self.edit("memories/18-MemDebug.toml", "start = \"zeroed\"", "start = \"cleared\"")
        self.assert_refused("18-MemDebug.toml", "start:", "must be one of")

    def test_a_fill_value_without_a_filled_start(self):
        self.edit("memories/18-MemDebug.toml", "start = \"zeroed\"", "start = \"zeroed\"\nfill = \"LogAll\"")
        self.assert_refused("18-MemDebug.toml", "fill:", "only a \"fill\" start takes a fill value")

    def test_a_readonly_flag_that_is_not_a_bool(self):
        self.edit("memories/04-MemStatic.toml", "event = 366, readonly = true",
                  "event = 366, readonly = \"yes\"")
        self.assert_refused("04-MemStatic.toml", "variable \"FpgaVersion\"",
                            "readonly must be true or false")

    def test_a_memory_name_without_its_prefix(self):
        self.edit("catalogue.toml", "\"MemDebug\",", "\"DebugCounters\",")
        self.assert_refused("catalogue.toml", "memories[18]", "Mem<Name>")

    def test_an_array_as_last_struct_member(self):
        self.edit("structs.toml", "{ name = \"TraceText\", type = \"string\", length = 48 }",
                  "{ name = \"TraceText\", type = \"string\", length = 4, count = 12 }")
        self.assert_refused("binding fact \"struct text readable as JSON\"", "TraceInfoStruct")

    def test_a_duplicate_name(self):
        self.edit(PERSISTENT, "name = \"BluetoothPower\"", "name = \"AUXTorque\"")
        self.assert_refused(PERSISTENT, "variable \"AUXTorque\"", "duplicate")

    def test_an_event_out_of_range(self):
        self.edit(PERSISTENT, "offset = 644, event = 269", "offset = 644, event = 3")
        self.assert_refused(PERSISTENT, "variable \"BluetoothPower\"", "event 3 is out of range")

    def test_an_overlapping_offset(self):
        self.edit(PERSISTENT, "offset = 644, event = 269", "offset = 643, event = 269")
        self.assert_refused(PERSISTENT, "overlaps")

    def test_a_bound_that_the_range_check_does_not_read_whole(self):
        self.edit(PERSISTENT, "min = \"1\", max = \"4\", default = 2, event = 173",
                  "min = \"0x1\", max = \"4\", default = 2, event = 173")
        self.assert_refused(PERSISTENT, "variable \"AUXTorque\"",
                            "min must be a plain decimal int that the range check reads: \"0x1\" is "
                            "not a decimal integer")

    def test_a_float_bound_beyond_the_floats(self):
        self.edit("memories/02-MemDistanceMeasure.toml", "max = \"25\", default = 12.5",
                  "max = \"1e39\", default = 12.5")
        self.assert_refused("02-MemDistanceMeasure.toml", "variable \"CdmMaxRange\"",
                            "max must be a plain decimal float that the range check reads: beyond "
                            "the largest float")

    def test_a_buffer_as_struct_member(self):
        self.edit("structs.toml", "{ name = \"TraceText\", type = \"string\", length = 48 }",
                  "{ name = \"TraceText\", type = \"buffer\", length = 48 }")
        self.assert_refused("structs.toml", "member \"TraceText\"", "a struct member cannot be a buffer")

    def test_a_record_that_does_not_fit(self):
        self.edit("memories/10-MemBluetooth.toml", "type = \"buffer\", length = 2, offset = 518",
                  "type = \"buffer\", length = 4, offset = 518")
        self.assert_refused("10-MemBluetooth.toml", "BluetoothPairingCode", "past the record size 520")


class DeviceFactsTest(unittest.TestCase):
    """The facts are read from the highest version among the device's snapshots."""

    def setUp(self):
        self.work = pathlib.Path(tempfile.mkdtemp())
        self.releases = self.work / "releases"
        self.releases.mkdir()
        self.recorded = json.loads((GEN_ROOT / "model" / "releases" / "1.0.0.json").read_text())
        self.model = model_module.load(GEN_ROOT / "model")

    def tearDown(self):
        shutil.rmtree(self.work)

    def record(self, version, debug_size):
        data = json.loads(json.dumps(self.recorded))
        data["version"] = version
        data["memories"][18]["size"] = debug_size
        (self.releases / f"{version}.json").write_text(json.dumps(data))

    def test_the_latest_release_in_version_order_holds_the_facts(self):
        self.record("1.9.0", 368)
        self.record("1.10.0", 364)
        self.record("1.2.0", 360)
        facts = checks.device_facts(self.work)
        self.assertEqual(facts.version, "1.10.0")
        with self.assertRaises(checks.CheckError) as refusal:
            checks.run_all(self.model, facts)
        self.assertIn("binding fact \"memory table\" is broken: MemDebug must be 364 bytes long, "
                      "not 360 (the device's facts are those of release 1.10.0, "
                      f"{self.releases / '1.10.0.json'})", str(refusal.exception))

    def test_a_release_without_what_a_binding_fact_names(self):
        data = json.loads(json.dumps(self.recorded))
        data["version"] = "1.1.0"
        data["structs"] = [s for s in data["structs"] if s["name"] != "ScaleValues"]
        (self.releases / "1.1.0.json").write_text(json.dumps(data))
        with self.assertRaises(checks.CheckError) as refusal:
            checks.run_all(self.model, checks.device_facts(self.work))
        self.assertIn("binding fact \"release snapshot\" is broken: release 1.1.0 has no struct "
                      "\"ScaleValues\", which a binding fact names", str(refusal.exception))

    def test_the_device_model_holds_the_facts_of_its_latest_release(self):
        checks.run_all(self.model, checks.device_facts())

    def test_no_snapshot_no_facts(self):
        shutil.rmtree(self.releases)
        with self.assertRaises(checks.CheckError) as refusal:
            checks.device_facts(self.work)
        self.assertIn("there is no release snapshot to read the device's facts from",
                      str(refusal.exception))


if __name__ == "__main__":
    unittest.main()
