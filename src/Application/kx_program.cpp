/* Program upload: a program file (or a drag-teach trajectory turned into
 * one) is announced with "run_project", written raw in paced chunks straight
 * to the connection, and acknowledged with "download_project". */
#include <time.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kx_command.h"
#include "kx_result.h"
#include "kx_core.h"

using namespace kx;

namespace {

constexpr size_t kPathLen = 300;
constexpr size_t kChunk = 100;         /* bytes per raw write of a file upload */
constexpr int kChunkPauseMs = 2;       /* the controller's pace */
constexpr size_t kMemoryChunk = 10;    /* bytes per write of an in-memory upload */
constexpr int kAckTimeout = 2000;
constexpr int kMemoryAckTimeout = 10000;
constexpr int kLineBuf = 1024;

/* The path characters the call may use: never past the record's array. */
std::string bounded(const char* text, size_t limit) { return std::string(text, strnlen(text, limit)); }

/* Position after the last "/", else after the last "\\", else 0. */
size_t name_start(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) slash = path.rfind('\\');
    return slash == std::string::npos ? 0 : slash + 1;
}

/* The directory part, separator included; empty when there is none. */
std::string directory_of(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) slash = path.rfind('\\');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string base_name(const std::string& path) {
    std::string file = path.substr(name_start(path));
    size_t dot = file.rfind('.');
    return dot == std::string::npos ? file : file.substr(0, dot);
}

/* The whole file, or empty with -5 after the matching log line. */
int read_file(const std::string& path, std::vector<char>& image) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
        kx_log_error("File open failed\n");
        return kFileError;
    }
    long size = std::fseek(f, 0, SEEK_END) == 0 ? std::ftell(f) : -1;
    if (size < 0 || size >= INT_MAX) {
        kx_log_error("Failed to get file size\n");
        std::fclose(f);
        return kFileError;
    }
    try {
        image.assign(static_cast<size_t>(size) + 1, '\0');
    } catch (...) {
        kx_log_error("Memory allocation failed\n");
        std::fclose(f);
        return kFileError;
    }
    std::rewind(f);
    size_t got = std::fread(image.data(), 1, static_cast<size_t>(size), f);
    std::fclose(f);
    if (got < static_cast<size_t>(size)) {
        kx_log_error("Failed to read entire file\n");
        image.clear();
        return kFileError;
    }
    image.resize(static_cast<size_t>(size));
    return 0;
}

/* Writes `len` bytes in pieces of `chunk`, each cut at an embedded zero
 * byte as a C string would be, holding the connection's writer throughout so
 * that no other request lands inside the upload. An upload paces itself for
 * seconds, so it holds its connection, never the registry lock that other
 * arms need. */
int write_chunks(ConnUse& use, const char* data, size_t len, size_t chunk, bool blocking, int pause) {
    if (!use) return -1;
    Conn& conn = use.conn();
    std::lock_guard lock(conn.writer);
    kx_socket_handle* sock = use.record()->socket_handle;
    for (size_t off = 0; off < len; off += chunk) {
        size_t n = strnlen(data + off, std::min(chunk, len - off));
        if (sock != nullptr && n > 0) {
            auto* bytes = reinterpret_cast<uint8_t*>(const_cast<char*>(data + off));
            if ((blocking ? sock->block_send : sock->send)(sock, bytes, static_cast<int>(n)) != 0) conn.cut = true;
        }
        if (pause > 0) pause_ms(pause);
    }
    return 0;
}

/* The acknowledgement: "project_state", and "err_line" when refused. */
int await_ack(kx_robot_handle* h, int timeout, int* err_line) {
    static const char* const fn = "kx_send_project";
    ReplyBuf buf;
    int r = exchange(fn, h, nullptr, "download_project", buf, timeout);
    if (r < 1) return r;
    int verdict = parse_kx_set_command(fn, buf.text, "project_state");
    if (verdict == 0) {
        if (err_line) *err_line = -1;
        return 0;
    }
    KeyValue kv = kv_int("err_line");
    if (common_json_parse(fn, buf.text, &kv, 1) == 0 && err_line) *err_line = kv.data.int_value;
    return verdict;
}

}  // namespace

extern "C" {

KX_API char* kx_get_cur_times(void) {
    static char stamp[10];
    time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    std::snprintf(stamp, sizeof stamp, "%02d_%02d_%02d", static_cast<unsigned char>(local.tm_hour) % 60u,
                  static_cast<unsigned char>(local.tm_min) % 60u, static_cast<unsigned char>(local.tm_sec) % 61u);
    return stamp;
}

KX_API int countLinesInFile(const char* filename) {
    FILE* f = filename ? std::fopen(filename, "r") : nullptr;
    if (f == nullptr) {
        std::perror("打开文件失败");
        std::exit(1);  // the interface's own behaviour, kept on purpose: the one exit of the library's calls
    }
    char line[kLineBuf];
    int count = 0;
    while (std::fgets(line, sizeof line, f) != nullptr) ++count;
    std::fclose(f);
    return count;
}

KX_API void add_lines_to_file(kx_robot_handle* handle, const char* file_path, const char* project_path) {
    kx_robot_info_t info{};
    if (kx_get_robot_info(handle, &info) != 0) {
        std::printf("Failed to get robot info");
        return;
    }
    if (info.arm_dof != 6 && info.arm_dof != 7) {
        std::printf("Invalid degree of freedom, must be 6 or 7");
        return;
    }
    char file_line[50], folder_line[100];
    std::snprintf(file_line, sizeof file_line, "{\"file\":%d}\r\n", info.arm_dof);
    std::snprintf(folder_line, sizeof folder_line,
                  "{\"name\":\"Folder\",\"num\":1,\"type\":%d,\"enabled\":true,\"parent_number\":0}\r\n",
                  countLinesInFile(file_path));
    FILE* in = std::fopen(file_path, "rb");
    if (in == nullptr) {
        std::printf("Failed to open file: %s\n", file_path);
        return;
    }
    FILE* out = project_path ? std::fopen(project_path, "wb") : nullptr;
    if (out == nullptr) {
        std::fclose(in);
        std::perror("Error opening file");
        return;
    }
    std::fputs(file_line, out);
    std::fputs(folder_line, out);
    char line[kLineBuf];
    while (std::fgets(line, sizeof line, in) != nullptr) std::fputs(line, out);
    std::fclose(in);
    std::fclose(out);
}

KX_API int kx_run_project(kx_robot_handle* handle, kx_send_project_t project, int file_size) {
    return kx::guarded("kx_run_project", -1, [&]() -> int {
        std::string name = bounded(project.project_path, kPathLen);
        Request req("run_project");
        req.str("project_name", name.c_str())
            .num("file_size", file_size)
            .num("plan_speed", project.plan_speed)
            .num("step_flag", project.step_flag)
            .num("only_save", project.only_save)
            .num("save_id", project.save_id);
        return set_command("kx_run_project", handle, req, "run_project", "project_state");
    });
}

KX_API int kx_send_project(kx_robot_handle* handle, kx_send_project_t project, int* err_line) {
    return kx::guarded("kx_send_project", -1, [&]() -> int {
        size_t used = project.project_path_len < 0 ? 0 : static_cast<size_t>(project.project_path_len);
        std::string work = bounded(project.project_path, std::min(used, kPathLen - 1));
        std::string base = base_name(work);
        if (project.project_type != 0) {
            /* A trajectory becomes a program saved beside it under a new name. */
            base += kx_get_cur_times();
            base += ".txt";
            kx_log_debug("Save As: [%s]\n", base.c_str());
            std::string source = bounded(project.project_path, kPathLen);
            std::string dir = directory_of(source);
            std::string save_as = dir.empty() ? std::string() : dir + base;
            add_lines_to_file(handle, source.c_str(), save_as.c_str());
            work = save_as.substr(0, kPathLen);
        }
        std::vector<char> image;
        if (int r = read_file(work, image); r != 0) return r;

        copy_str(project.project_path, base.c_str());
        project.project_path_len = static_cast<int>(strnlen(project.project_path, kPathLen));
        /* From the announcement to the last chunk nothing else is written. */
        ConnUse use(handle);
        std::unique_lock<std::recursive_mutex> writing;
        if (use) writing = std::unique_lock(use.conn().writer);
        int announced = kx_run_project(handle, project, static_cast<int>(image.size()));
        if (announced != 0) {
            kx_log_error("[kx_run_project] failed\n");
            return announced;
        }
        if (write_chunks(use, image.data(), image.size(), kChunk, true, kChunkPauseMs) != 0) return kFailed;
        if (writing) writing.unlock();
        return await_ack(handle, kAckTimeout, err_line);
    });
}

KX_API int kx_send_project_lock(kx_robot_handle* handle, const char* data, int data_len, int* err_line) {
    return kx::guarded("kx_send_project_lock", -1, [&]() -> int {
        if (data == nullptr || data_len < 0) return kFailed;
        {
            ConnUse use(handle);
            if (write_chunks(use, data, static_cast<size_t>(data_len), kMemoryChunk, false, 0) != 0) return kFailed;
        }
        return await_ack(handle, kMemoryAckTimeout, err_line);
    });
}

}  // extern "C"
