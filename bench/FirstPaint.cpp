// Starts a program on an X display and measures from outside how long it takes until its window has been painted.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/damage.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

/// A window that shows letters, which have soft edges, has more colours than one that is still empty.
constexpr size_t kColoursOfLetters = 24;
/// Pixels: what is narrower is no window that somebody could read.
constexpr int kMinWidth = 200;
constexpr auto kPatience = 60s;

struct Free {
    void operator()(void *memory) const { std::free(memory); }
};
template<class Reply>
using Owned = std::unique_ptr<Reply, Free>;

class Display
{
public:
    Display()
        : connection(xcb_connect(nullptr, nullptr))
    {
        if (xcb_connection_has_error(connection)) {
            std::fputs("first-paint: no display\n", stderr);
            std::exit(2);
        }
        root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        const uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection, root, XCB_CW_EVENT_MASK, &events);
        Owned<xcb_damage_query_version_reply_t>(
            xcb_damage_query_version_reply(connection, xcb_damage_query_version(connection, 1, 1), nullptr));
        damage = xcb_generate_id(connection);
        xcb_damage_create(connection, damage, root, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        xcb_flush(connection);
    }
    ~Display() { xcb_disconnect(connection); }
    Display(const Display &) = delete;
    Display &operator=(const Display &) = delete;

    /// Waits until something was drawn that makes up a window with letters; false when the process ends before.
    bool awaitPaint(pid_t process, Clock::time_point &paintedAt)
    {
        const Clock::time_point begin = Clock::now();
        while (Clock::now() - begin < kPatience) {
            pollfd input = {xcb_get_file_descriptor(connection), POLLIN, 0};
            ::poll(&input, 1, 100);
            paintedAt = Clock::now();
            if (workOff() && isWindowPainted()) {
                return true;
            }
            if (::waitpid(process, nullptr, WNOHANG) != 0) {
                return false;
            }
        }
        return false;
    }

    /// Writes the window that was found painted as a portable pixmap, for a person to look at.
    void save(const char *path) const
    {
        std::ofstream file(path, std::ios::binary);
        file << "P6\n" << width << ' ' << pixels.size() / width << "\n255\n";
        for (const uint32_t pixel : pixels) {
            file.put(static_cast<char>(pixel >> 16)).put(static_cast<char>(pixel >> 8)).put(static_cast<char>(pixel));
        }
    }

private:
    /// Whether something was drawn.
    bool workOff()
    {
        bool drawn = false;
        while (const Owned<xcb_generic_event_t> event{xcb_poll_for_event(connection)}) {
            if ((event->response_type & 0x7F) == XCB_MAP_NOTIFY) {
                windows.push_back(reinterpret_cast<const xcb_map_notify_event_t *>(event.get())->window);
            } else {
                drawn = true;
            }
        }
        xcb_damage_subtract(connection, damage, XCB_NONE, XCB_NONE);
        xcb_flush(connection);
        return drawn;
    }

    bool isWindowPainted()
    {
        for (const xcb_window_t window : windows) {
            const Owned<xcb_get_geometry_reply_t> place(
                xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr));
            if (!place || place->width < kMinWidth) {
                continue;
            }
            const Owned<xcb_get_image_reply_t> image(xcb_get_image_reply(
                connection,
                xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, window, 0, 0, place->width, place->height, ~0U),
                nullptr));
            if (!image) {
                continue;
            }
            const auto *first = reinterpret_cast<const uint32_t *>(xcb_get_image_data(image.get()));
            pixels.assign(first, first + xcb_get_image_data_length(image.get()) / 4);
            width = place->width;
            std::set<uint32_t> colours;
            for (const uint32_t pixel : pixels) {
                colours.insert(pixel);
                if (colours.size() == kColoursOfLetters) {
                    return true;
                }
            }
        }
        return false;
    }

    xcb_connection_t *connection;
    xcb_window_t root = 0;
    xcb_damage_damage_t damage = 0;
    std::vector<xcb_window_t> windows;
    std::vector<uint32_t> pixels;
    size_t width = 1;
};

/// KiB of memory that the process had at its peak.
long peakMemory(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    std::string word;
    while (status >> word && word != "VmHWM:") {}
    long kibibytes = 0;
    status >> kibibytes;
    return kibibytes;
}

} // namespace

int main(int argc, char **argv)
{
    const bool saves = argc > 3 && std::string(argv[1]) == "--save";
    const bool asks = argc > 2 && std::string(argv[1]) == "--end";
    char **const command = argv + (saves ? 3 : asks ? 2 : 1);
    if (!*command) {
        std::fputs("usage: first-paint [--save FILE.ppm | --end] COMMAND [ARGUMENT...]\n"
                   "Prints the milliseconds from exec to the first painted window and the KiB of memory at that time,\n"
                   "and ends the program: without asking it, or, with --end, by SIGTERM.\n"
                   "Exit status: 1 when the program ended before, 3 when it had painted nothing after a minute.\n",
                   stderr);
        return 2;
    }
    Display display;
    const Clock::time_point begin = Clock::now();
    const pid_t process = ::fork();
    if (process == 0) {
        ::execvp(*command, command);
        std::_Exit(127);
    }
    Clock::time_point painted;
    const bool wasPainted = display.awaitPaint(process, painted);
    if (wasPainted) {
        std::printf("%.3f %ld\n", std::chrono::duration<double, std::milli>(painted - begin).count(),
                    peakMemory(process));
    }
    if (wasPainted && saves) {
        display.save(argv[2]);
    }
    ::kill(process, asks ? SIGTERM : SIGKILL);
    ::waitpid(process, nullptr, 0);
    return wasPainted ? 0 : Clock::now() - begin < kPatience ? 1 : 3;
}
