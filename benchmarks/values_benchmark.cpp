// The settings reader and the value conversions: parsing a full settings
// document with Json beside nlohmann::json::parse of the same text, one
// getVarValue and one setVarValue per base type, and reading every
// MemPersistent variable as text.
//
// The memories are created with their defaults; the broker double takes the
// events that writes post and discards them.  Run
// inside a device root:
//   tools/devroot/devroot exec --bind-ro $PWD/build/native --
//       build/native/benchmarks/values_benchmark
// (one command line)
#include "brokerdouble.h"
#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/json.h"
#include "settings-service/memories.h"

#include <nlohmann/json.hpp>

#include <benchmark/benchmark.h>

#include <cstring>
#include <stdexcept>

namespace {

constexpr uint32_t PERSISTENT = 0;

uint32_t variableIndex(const char* name) {
    for (uint32_t variable = 0; variable < Introspection::getVarCount(PERSISTENT); ++variable) {
        if (std::strcmp(name, Introspection::getVarName(PERSISTENT, variable)) == 0) {
            return variable;
        }
    }
    throw std::logic_error(name);
}

uint32_t elementCount(uint32_t variable) {
    return Introspection::isArray(PERSISTENT, variable)
               ? std::stoi(Introspection::getVarArrayLen(PERSISTENT, variable))
               : 1;
}

// The memories with their defaults and a connection, once per program.
void startDevice() {
    static BrokerDouble* sink = nullptr;
    if (sink == nullptr) {
        sink = new BrokerDouble;
        gen::init();
        if (sink->accept(0, BrokerDouble::Reading::Discarding) < 0) {
            throw std::runtime_error("the catalogue did not connect");
        }
    }
}

// A settings document as the service writes it: every MemPersistent variable
// on a line of its own; ints, floats, bools and structs bare, other types
// quoted, arrays (but of strings) as "[" + elements joined by "," + "]".
std::string settingsDocument() {
    std::string document = "{\n";
    for (uint32_t variable = 0; variable < Introspection::getVarCount(PERSISTENT); ++variable) {
        const uint32_t base = Introspection::getVarBaseType(PERSISTENT, variable);
        std::string value;
        if (Introspection::isArray(PERSISTENT, variable) && base != BaseString) {
            value = "[";
            for (uint32_t k = 0; k < elementCount(variable); ++k) {
                value += (k ? "," : "") + Introspection::getVarValue(PERSISTENT, variable, k);
            }
            value += "]";
        } else {
            value = Introspection::getVarValue(PERSISTENT, variable, 0);
            if (base != BaseInt && base != BaseFloat && base != BaseBool && base != BaseStruct) {
                value = "\"" + value + "\"";
            }
        }
        document += std::string(variable ? ",\n" : "") + "\"" +
                    Introspection::getVarName(PERSISTENT, variable) + "\": " + value;
    }
    return document + "\n}";
}

void BM_JsonParseSettings(benchmark::State& state) {
    startDevice();
    const std::string document = settingsDocument();
    for (auto _ : state) {
        Json json;
        benchmark::DoNotOptimize(json.parse(document));
        benchmark::DoNotOptimize(json.items.data());
    }
    state.SetBytesProcessed(state.iterations() * document.size());
    state.counters["bytes"] = static_cast<double>(document.size());
}
BENCHMARK(BM_JsonParseSettings);

void BM_NlohmannParseSettings(benchmark::State& state) {
    startDevice();
    const std::string document = settingsDocument();
    for (auto _ : state) {
        nlohmann::json json = nlohmann::json::parse(document);
        benchmark::DoNotOptimize(json);
    }
    state.SetBytesProcessed(state.iterations() * document.size());
}
BENCHMARK(BM_NlohmannParseSettings);

// One variable per base type; the struct is the first element of RecentLensFiles.
const char* const SAMPLES[] = {"AUXTorque",
                               "CircleofConfusion",
                               "BluetoothPower",
                               "LensFileFavouriteFolder",
                               "CinefadeDisplayModeValue",
                               "RecentLensFiles"};

void BM_GetVarValue(benchmark::State& state) {
    startDevice();
    const uint32_t variable = variableIndex(SAMPLES[state.range(0)]);
    state.SetLabel(Introspection::getVarType(PERSISTENT, variable));
    for (auto _ : state) {
        benchmark::DoNotOptimize(Introspection::getVarValue(PERSISTENT, variable, 0));
    }
}
BENCHMARK(BM_GetVarValue)->DenseRange(0, 5);

// Writes the value that is already stored: no event for int, float, bool and
// enum; a string posts one after every write.  The struct goes through
// setVarValueJson with the members of its own text.
void BM_SetVarValueUnchanged(benchmark::State& state) {
    startDevice();
    const uint32_t variable = variableIndex(SAMPLES[state.range(0)]);
    state.SetLabel(Introspection::getVarType(PERSISTENT, variable));
    const std::string text = Introspection::getVarValue(PERSISTENT, variable, 0);
    if (Introspection::getVarBaseType(PERSISTENT, variable) == BaseStruct) {
        Json members;
        members.parse(text);
        for (auto _ : state) {
            benchmark::DoNotOptimize(
                Introspection::setVarValueJson(PERSISTENT, variable, members.items, 0));
        }
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(Introspection::setVarValue(PERSISTENT, variable, text.c_str()));
    }
}
BENCHMARK(BM_SetVarValueUnchanged)->DenseRange(0, 5);

// Alternates between two values, so every write stores and posts its event.
void BM_SetVarValueChanged(benchmark::State& state) {
    startDevice();
    const uint32_t variable = variableIndex("AUXTorque");
    bool flip = false;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            Introspection::setVarValue(PERSISTENT, variable, (flip = !flip) ? "3" : "2"));
    }
}
BENCHMARK(BM_SetVarValueChanged);

void BM_ReadEveryPersistentVariable(benchmark::State& state) {
    startDevice();
    for (auto _ : state) {
        for (uint32_t variable = 0; variable < Introspection::getVarCount(PERSISTENT); ++variable) {
            for (uint32_t k = 0; k < elementCount(variable); ++k) {
                benchmark::DoNotOptimize(Introspection::getVarValue(PERSISTENT, variable, k));
            }
        }
    }
}
BENCHMARK(BM_ReadEveryPersistentVariable);

} // namespace

BENCHMARK_MAIN();
