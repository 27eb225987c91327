// SPDX-License-Identifier: MIT
/* bench_report: reads the JSON results of the benchmark runs (see
 * bench/report) and prints one table of library-against-floor ratios, with
 * the allocation, throughput, memory and concurrency figures below it, then
 * the doors' table (bench_doors) and the SVF player's (bench_svf) when their
 * results are among them. With --doors or --svf first, only that table
 * (scripts/bench-doors.sh, scripts/bench-svf.sh). */
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include <nlohmann/json.hpp>

namespace {

struct Result {
    double nanoseconds = 0;
    std::map<std::string, double> counters;
};

double toNanoseconds(double time, const std::string& unit) {
    if (unit == "us") return time * 1e3;
    if (unit == "ms") return time * 1e6;
    if (unit == "s") return time * 1e9;
    return time;
}

/* "BM_X/32/iterations:1/real_time" -> "BM_X/32": the run's name without its
 * settings; medians of repeated runs, single runs as they are. */
std::string shortName(const std::string& runName) {
    std::string name;
    std::size_t start = 0;
    while (start <= runName.size()) {
        const std::size_t end = std::min(runName.find('/', start), runName.size());
        const std::string part = runName.substr(start, end - start);
        if (part.find(':') == std::string::npos && part != "real_time" && part != "manual_time")
            name += (name.empty() ? "" : "/") + part;
        start = end + 1;
    }
    return name;
}

std::map<std::string, Result> load(int count, char** paths) {
    std::map<std::string, Result> results;
    for (int i = 0; i < count; ++i) {
        std::ifstream in(paths[i]);
        std::string text((std::istreambuf_iterator<char>(in)), {});
        // Aggregates of a counter that is always 0 (its coefficient of
        // variation) come out as NaN, which JSON cannot hold.
        for (std::size_t at = text.find(": NaN"); at != std::string::npos; at = text.find(": NaN", at))
            text.replace(at, 5, ": null");
        const nlohmann::json document = nlohmann::json::parse(text);
        for (const auto& entry : document.at("benchmarks")) {
            const std::string aggregate = entry.value("aggregate_name", "");
            if (!aggregate.empty() && aggregate != "median") continue;
            Result& result = results[shortName(entry.at("run_name").get<std::string>())];
            result.nanoseconds =
                toNanoseconds(entry.at("real_time").get<double>(), entry.at("time_unit").get<std::string>());
            for (const auto& [key, value] : entry.items())
                if (value.is_number() && key != "real_time" && key != "cpu_time" && key != "iterations" &&
                    key != "repetitions" && key != "repetition_index" && key != "threads" && key != "family_index" &&
                    key != "per_family_instance_index")
                    result.counters[key] = value.get<double>();
        }
    }
    return results;
}

double counterOf(const std::map<std::string, Result>& results, const std::string& name, const char* key) {
    const auto found = results.find(name);
    if (found == results.end()) return 0.0;
    const auto value = found->second.counters.find(key);
    return value == found->second.counters.end() ? 0.0 : value->second;
}

/* The session layer against the bare Client on the simulator (bench_session):
 * the medians of the paired blocks' ratios, and the times per call. */
void printSession(const std::map<std::string, Result>& results) {
    const auto value = [&](const char* key) { return counterOf(results, "BM_Session_Paired", key); };
    std::printf("\n| %-44s | %15s | %15s | %6s | %-8s |\n", "session layer (median of paired blocks)", "layer",
                "bare Client", "ratio", "target");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(46, '-').c_str(), std::string(17, '-').c_str(),
                std::string(17, '-').c_str(), std::string(8, '-').c_str(), std::string(10, '-').c_str());
    std::printf("| %-44s | %12.1f us | %12.1f us | %6.3f | %-8s |\n", "Send(38)", value("send38_layer_us"),
                value("send38_client_us"), value("send38_ratio"), "<= 1.02");
    std::printf("| %-44s | %12.1f us | %12.1f us | %6.3f | %-8s |\n", "JTAG scan 32 bits with read-back",
                value("scan32_layer_us"), value("scan32_client_us"), value("scan32_ratio"), "<= 1.02");
}

/* OpenOCD's scans through the simulator's remote_bitbang door against the
 * same scans through the minimal remote_bitbang server (paired runs; the
 * ratio is the median of the pairs'), the library's scans, and
 * openFPGALoader's --detect through the XVC door. */
void printDoors(const std::map<std::string, Result>& results) {
    const char* const bits[] = {"32", "4096"};
    const char* const openOcd[] = {"BM_OpenOcdDrscan/32/4000", "BM_OpenOcdDrscan/4096/80"};
    std::printf("\n| %-44s | %15s | %15s | %6s | %-8s |\n", "OpenOCD drscan (median)", "via the door", "minimal server",
                "ratio", "target");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(46, '-').c_str(), std::string(17, '-').c_str(),
                std::string(17, '-').c_str(), std::string(8, '-').c_str(), std::string(10, '-').c_str());
    for (int i = 0; i < 2; ++i)
        std::printf("| %-44s | %12.1f us | %12.1f us | %6.3f | %-8s |\n",
                    (std::string(bits[i]) + " bits, time per scan").c_str(),
                    counterOf(results, openOcd[i], "door_us_per_scan"),
                    counterOf(results, openOcd[i], "minimal_us_per_scan"),
                    counterOf(results, openOcd[i], "door_vs_minimal"), "<= 1.10");
    for (int i = 0; i < 2; ++i) {
        const std::string library = std::string("BM_LibraryDrscan/") + bits[i];
        std::printf("%s-bit scans per second: OpenOCD via the door %.0f, via the minimal server %.0f; library %.0f\n",
                    bits[i], counterOf(results, openOcd[i], "door_scans_per_s"),
                    counterOf(results, openOcd[i], "minimal_scans_per_s"), counterOf(results, library, "scans_per_s"));
        std::printf(
            "%s-bit CPU per scan: door %.1f us, minimal server %.1f us, OpenOCD %.1f us (whole runs); "
            "simulator under the library %.1f us\n",
            bits[i], counterOf(results, openOcd[i], "door_cpu_us_per_scan"),
            counterOf(results, openOcd[i], "minimal_cpu_us_per_scan"),
            counterOf(results, openOcd[i], "openocd_cpu_us_per_scan"),
            counterOf(results, library, "server_cpu_us_per_scan"));
    }
    std::printf("openFPGALoader --detect through the XVC door: %.0f ms per run (median)\n",
                counterOf(results, "BM_OpenFpgaLoaderDetect", "median_ms"));
}

/* The SVF player: `tetherctl svf` (start-up taken off) against OpenOCD's
 * svf (the better of the door and the minimal server) and against the
 * floor, per file, rates and CPU per scan, and tetherctl's peak memory on a
 * small and a 100 MB file. */
void printSvf(const std::map<std::string, Result>& results) {
    struct File {
        const char* name;
        const char* label;
        const char* openOcdTarget;
    };
    const File files[] = {{"BM_SvfPlay/LongScan4Mibit", "one 4 Mibit SDR", ">= 20x"},
                          {"BM_SvfPlay/ShortPairs10000", "10,000 SIR/SDR pairs", "reported"}};
    std::printf("\n| %-44s | %15s | %15s | %6s | %-8s |\n", "SVF, tetherctl svf (median of rounds)", "tetherctl",
                "baseline", "ratio", "target");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(46, '-').c_str(), std::string(17, '-').c_str(),
                std::string(17, '-').c_str(), std::string(8, '-').c_str(), std::string(10, '-').c_str());
    for (const File& file : files) {
        const auto value = [&](const char* key) { return counterOf(results, file.name, key); };
        std::printf("| %-44s | %12.1f ms | %12.1f ms | %5.1fx | %-8s |\n",
                    (std::string(file.label) + ": speed-up over OpenOCD").c_str(), value("tetherctl_ms"),
                    value("openocd_ms"), value("speedup_vs_openocd"), file.openOcdTarget);
        std::printf("| %-44s | %12.1f ms | %12.1f ms | %6.3f | %-8s |\n",
                    (std::string(file.label) + ": vs the floor").c_str(), value("tetherctl_ms"), value("floor_ms"),
                    value("tetherctl_vs_floor"), "<= 1.10");
    }
    for (const File& file : files) {
        const auto value = [&](const char* key) { return counterOf(results, file.name, key); };
        std::printf("%s (%.0f frames checked against the floor's):\n", file.label, value("frames_checked"));
        std::printf(
            "  bits/s, scans/s: tetherctl %.3g, %.0f; svf::play %.3g, %.0f; floor %.3g, %.0f; OpenOCD %.3g, %.0f\n",
            value("tetherctl_bits_per_s"), value("tetherctl_scans_per_s"), value("play_bits_per_s"),
            value("play_scans_per_s"), value("floor_bits_per_s"), value("floor_scans_per_s"),
            value("openocd_bits_per_s"), value("openocd_scans_per_s"));
        std::printf(
            "  OpenOCD via the door %.1f ms, via the minimal server %.1f ms; tetherctl whole run %.1f ms, start-up "
            "%.1f ms (%.1fx with start-up); svf::play vs floor %.3f\n",
            value("openocd_door_ms"), value("openocd_minimal_ms"), value("tetherctl_whole_ms"),
            value("tetherctl_startup_ms"), value("speedup_vs_openocd_whole_process"), value("play_vs_floor"));
        std::printf(
            "  CPU per scan, user + system: tetherctl %.2f + %.2f us, svf::play %.2f + %.2f us, floor %.2f + %.2f "
            "us; simulator %.2f us\n",
            value("tetherctl_user_us_per_scan"), value("tetherctl_system_us_per_scan"), value("play_user_us_per_scan"),
            value("play_system_us_per_scan"), value("floor_user_us_per_scan"), value("floor_system_us_per_scan"),
            value("simulator_cpu_us_per_scan"));
    }
    const auto memory = [&](const char* key) { return counterOf(results, "BM_SvfMemory", key); };
    std::printf("tetherctl svf peak resident memory: %.0f kB on a %.1f MB file, %.0f kB on a %.1f MB file (%.3fx)\n",
                memory("small_peak_rss_kB"), memory("small_file_MB"), memory("large_peak_rss_kB"),
                memory("large_file_MB"), memory("large_vs_small_rss"));
}

}  // namespace

int main(int argc, char** argv) try {
    const std::string mode = argc > 1 ? argv[1] : "";
    const bool doorsOnly = mode == "--doors";
    const bool svfOnly = mode == "--svf";
    const int first = doorsOnly || svfOnly ? 2 : 1;
    const auto results = load(argc - first, argv + first);
    if (doorsOnly) {
        printDoors(results);
        return 0;
    }
    if (svfOnly) {
        printSvf(results);
        return 0;
    }
    auto time = [&](const char* name) {
        const auto found = results.find(name);
        return found == results.end() ? 0.0 : found->second.nanoseconds;
    };
    auto counter = [&](const char* name, const char* key) {
        const auto found = results.find(name);
        if (found == results.end()) return 0.0;
        const auto value = found->second.counters.find(key);
        return value == found->second.counters.end() ? 0.0 : value->second;
    };
    auto row = [&](const char* label, const char* library, const char* floor, const char* target) {
        const double lib = time(library);
        const double flo = time(floor);
        std::printf("| %-44s | %12.1f ns | %12.1f ns | %6.3f | %-8s |\n", label, lib, flo, flo > 0 ? lib / flo : 0.0,
                    target);
    };

    std::printf("| %-44s | %15s | %15s | %6s | %-8s |\n", "measure (median)", "library", "floor", "ratio", "target");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(46, '-').c_str(), std::string(17, '-').c_str(),
                std::string(17, '-').c_str(), std::string(8, '-').c_str(), std::string(10, '-').c_str());
    row("PrintMessage, switches off (vs bare call)", "BM_PrintMessageSwitchesOff", "BM_BaselineVariadicCall",
        "<= 50 ns");
    row("Send(38) (vs send/recv client)", "BM_Send38_Library", "BM_Send38_Floor", "<= 1.05");
    row("JTAG shift 32 bits with read-back", "BM_JtagShift_Library/32", "BM_JtagShift_Floor/32", "<= 1.05");
    row("JTAG shift 1 MiB with read-back", "BM_JtagShift_Library/8388608", "BM_JtagShift_Floor/8388608", "<= 1.05");
    row("simulator: Send(38) (vs minimal server)", "BM_Send38_Simulator", "BM_Send38_MinimalServer", "<= 1.10");
    row("simulator: Send(38) beside 100 stalled clients", "BM_Simulator_LatencyBesideStalledClients/100",
        "BM_Simulator_LatencyBesideStalledClients/0", "<= 1.5");

    std::printf(
        "\nheap allocations per operation: PrintMessage off %.2f, log line %.2f, Send(38) %.2f, "
        "JTAG 32 bits %.2f, JTAG 1 MiB %.2f\n",
        counter("BM_PrintMessageSwitchesOff", "allocs_per_op"), counter("BM_PrintMessageToLogFile", "allocs_per_op"),
        counter("BM_Send38_Library", "allocs_per_op"), counter("BM_JtagShift_Library/32", "allocs_per_op"),
        counter("BM_JtagShift_Library/8388608", "allocs_per_op"));
    std::printf("PrintMessage with a log file: %.0f ns per line\n", time("BM_PrintMessageToLogFile"));
    std::printf("JTAG 1 MiB with read-back: library %.1f MB/s, floor %.1f MB/s\n",
                counter("BM_JtagShift_Library/8388608", "bytes_per_second") / 1e6,
                counter("BM_JtagShift_Floor/8388608", "bytes_per_second") / 1e6);
    std::printf("library heap growth over a million Send(38): %.0f bytes\n",
                counter("BM_Send38_MillionCallsHeapGrowth", "heap_growth_bytes"));
    std::printf("simulator resident memory growth over a million commands: %.0f kB\n",
                counter("BM_Simulator_MillionCommandsMemory", "server_rss_growth_kB"));
    for (const char* clients : {"1", "16", "64"}) {
        const std::string name = std::string("BM_Simulator_ConcurrentClients/") + clients;
        std::printf("simulator, %2s concurrent clients: %8.0f commands/s, %.1f us server CPU per command\n", clients,
                    counter(name.c_str(), "commands_per_s"), counter(name.c_str(), "server_cpu_us_per_cmd"));
    }
    if (results.count("BM_Session_Paired") != 0) printSession(results);
    if (results.count("BM_OpenOcdDrscan/32/4000") != 0) printDoors(results);
    if (results.count("BM_SvfPlay/LongScan4Mibit") != 0) printSvf(results);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_report: %s\n", error.what());
    return 1;
}
