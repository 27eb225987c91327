// SPDX-License-Identifier: MIT
/* Recorder: the recorded sockets and the lines written for them. */
#include "wire/Recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <random>
#include <string>

namespace tetherhost::wire {

std::atomic<int> recordedSockets{0};

namespace {

struct Recording {
    int file = -1;
    std::string connection;
    std::string client;  // already escaped for JSON
};

std::mutex recordingsMutex;
std::map<int, Recording> recordings;
std::uint64_t connectionsStarted = 0;

/** This process's part of every connection's name: random, so that
 * processes recording into one file never name two connections alike. */
const std::string& processTag() {
    static const std::string tag = [] {
        std::random_device entropy;
        char text[24];
        std::snprintf(text, sizeof text, "%08x%08x", entropy(), entropy());
        return std::string(text);
    }();
    return tag;
}

void appendEscaped(std::string& out, const unsigned char* bytes, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned char c = bytes[i];
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c == 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            out += escape;
        } else {
            out += static_cast<char>(c);
        }
    }
}

/** Text when every byte is printable ASCII, NUL or a line end or tab (as
 * tokens are); hex otherwise, so that no byte is lost to an encoding. */
void appendBytes(std::string& out, const unsigned char* bytes, std::size_t length) {
    bool text = true;
    for (std::size_t i = 0; i < length && text; ++i) {
        const unsigned char c = bytes[i];
        text = (c >= 0x20 && c < 0x7F) || c == 0 || c == '\n' || c == '\r' || c == '\t';
    }
    if (text) {
        out += "\"text\":\"";
        appendEscaped(out, bytes, length);
    } else {
        out += "\"hex\":\"";
        static constexpr char digits[] = "0123456789abcdef";
        for (std::size_t i = 0; i < length; ++i) {
            out += digits[bytes[i] >> 4];
            out += digits[bytes[i] & 0xF];
        }
    }
    out += '"';
}

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

void startRecording(int socket, const char* clientName) {
    const char* path = std::getenv("TETHERHOST_RECORD");
    if (path == nullptr || path[0] == '\0') return;
    const int file = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (file == -1) return;
    Recording recording;
    recording.file = file;
    appendEscaped(recording.client, reinterpret_cast<const unsigned char*>(clientName),
                  std::char_traits<char>::length(clientName));
    const std::lock_guard<std::mutex> lock(recordingsMutex);
    // snprintf, not std::to_string: its digit table would join the
    // library's exported symbols.
    char number[24];
    std::snprintf(number, sizeof number, "-%llu", static_cast<unsigned long long>(++connectionsStarted));
    recording.connection = processTag() + number;
    // A socket number still listed belonged to a connection closed without
    // Disconnect (a Connect that replaced it): its recording ends here.
    // Not try_emplace: in a build without optimisation its
    // std::piecewise_construct would join the library's exported symbols.
    const auto listed = recordings.find(socket);
    if (listed != recordings.end()) {
        ::close(listed->second.file);
        listed->second = std::move(recording);
    } else {
        recordings.insert({socket, std::move(recording)});
        ++recordedSockets;
    }
}

void stopRecording(int socket) {
    if (recordedSockets.load(std::memory_order_relaxed) == 0) return;
    const std::lock_guard<std::mutex> lock(recordingsMutex);
    const auto entry = recordings.find(socket);
    if (entry == recordings.end()) return;
    ::close(entry->second.file);
    recordings.erase(entry);
    --recordedSockets;
}

void recordCall(int socket, Direction direction, const void* bytes, long result) {
    const std::lock_guard<std::mutex> lock(recordingsMutex);
    const auto entry = recordings.find(socket);
    if (entry == recordings.end()) return;
    const Recording& recording = entry->second;
    std::string line = "{\"conn\":\"" + recording.connection + "\",\"client\":\"" + recording.client + "\",";
    // A receive of 0 bytes is the server closing the connection.
    if (direction == Direction::Receive && result == 0) {
        line += "\"close\":true";
    } else {
        line += direction == Direction::Send ? "\"dir\":\"send\"," : "\"dir\":\"recv\",";
        appendBytes(line, static_cast<const unsigned char*>(bytes), result > 0 ? static_cast<std::size_t>(result) : 0);
    }
    char tail[64];
    std::snprintf(tail, sizeof tail, ",\"ret\":%ld,\"t\":%.6f}\n", result, monotonicSeconds());
    line += tail;
    // One write per line: with O_APPEND the line lands whole after whatever
    // other processes have appended.
    const ssize_t written = ::write(recording.file, line.data(), line.size());
    (void)written;
}

}  // namespace tetherhost::wire
