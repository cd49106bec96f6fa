// Usage: first_frame PROGRAM [ARGUMENT...]
//
// Starts a program on the display and prints how many milliseconds pass from there until its window is
// painted: mapped, and every pixel of it drawn over the colour that the bare root window had. Nothing is
// asked of the program itself. Then keeps it running until standard input ends, and ends it. The display
// should have no window manager and no other windows.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include <xcb/damage.h>
#include <xcb/xcb.h>

namespace {

// A colour that no theme uses; 24-bit, as the display has.
constexpr std::uint32_t kBareColour = 0xff00fe;
constexpr std::uint32_t kColourMask = 0xffffff;
// Helper windows of the toolkit are smaller.
constexpr int kSmallestWidth = 400;
constexpr int kSmallestHeight = 300;

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
template <class Reply>
using Owned = std::unique_ptr<Reply, Free>;

double Milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// Gives the root window the bare colour, and lets it tell of windows that are mapped in it.
void PrepareRoot(xcb_connection_t* connection, xcb_window_t root) {
    const std::uint32_t values[] = {kBareColour, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY};
    xcb_change_window_attributes(connection, root, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    xcb_clear_area(connection, 0, root, 0, 0, 0, 0);
    // The answer to this comes when the server has done the above.
    const Owned<xcb_get_input_focus_reply_t> done(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
}

bool IsMainWindow(xcb_connection_t* connection, xcb_window_t window) {
    const Owned<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr));
    return geometry && geometry->width >= kSmallestWidth && geometry->height >= kSmallestHeight;
}

// Whether nothing of the bare colour is left in the window.
bool IsPainted(xcb_connection_t* connection, xcb_window_t window) {
    const Owned<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr));
    if (!geometry) {
        return false;
    }
    const Owned<xcb_get_image_reply_t> image(
        xcb_get_image_reply(connection,
                            xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, window, 0, 0,
                                          geometry->width, geometry->height, ~0U),
                            nullptr));
    if (!image) {
        return false;
    }
    const auto* pixels = reinterpret_cast<const std::uint32_t*>(xcb_get_image_data(image.get()));
    const int count = xcb_get_image_data_length(image.get()) / 4;
    for (int i = 0; i < count; ++i) {
        if ((pixels[i] & kColourMask) == kBareColour) {
            return false;
        }
    }
    return count > 0;
}

// Waits for the window and its first whole picture. False when the display has gone.
bool WaitForFirstFrame(xcb_connection_t* connection, std::uint8_t damageNotify) {
    xcb_window_t window = XCB_NONE;
    while (const Owned<xcb_generic_event_t> event{xcb_wait_for_event(connection)}) {
        const int type = event->response_type & 0x7f;
        if (type == XCB_MAP_NOTIFY && window == XCB_NONE) {
            const auto* mapped = reinterpret_cast<const xcb_map_notify_event_t*>(event.get());
            if (!IsMainWindow(connection, mapped->window)) {
                continue;
            }
            window = mapped->window;
            xcb_damage_create(connection, xcb_generate_id(connection), window,
                              XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
            xcb_flush(connection);
        } else if (type != damageNotify) {
            continue;
        }
        if (window != XCB_NONE && IsPainted(connection, window)) {
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: first_frame PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    int screen = 0;
    xcb_connection_t* connection = xcb_connect(nullptr, &screen);
    const xcb_query_extension_reply_t* damage = xcb_get_extension_data(connection, &xcb_damage_id);
    if (xcb_connection_has_error(connection) != 0 || damage == nullptr || !damage->present) {
        std::fprintf(stderr, "first_frame: no display with the DAMAGE extension\n");
        return 2;
    }
    const Owned<xcb_damage_query_version_reply_t> version(xcb_damage_query_version_reply(
        connection, xcb_damage_query_version(connection, XCB_DAMAGE_MAJOR_VERSION, XCB_DAMAGE_MINOR_VERSION),
        nullptr));
    PrepareRoot(connection, xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root);

    const double start = Milliseconds();
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        execvp(argv[1], argv + 1);
        std::perror(argv[1]);
        _exit(127);
    }
    if (!WaitForFirstFrame(connection, static_cast<std::uint8_t>(damage->first_event + XCB_DAMAGE_NOTIFY))) {
        std::fprintf(stderr, "first_frame: the display has gone\n");
        return 1;
    }
    std::printf("%d %.2f\n", static_cast<int>(child), Milliseconds() - start);
    std::fflush(stdout);

    char ignored[64];
    while (read(STDIN_FILENO, ignored, sizeof ignored) > 0) {
    }
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    xcb_disconnect(connection);
    return 0;
}
