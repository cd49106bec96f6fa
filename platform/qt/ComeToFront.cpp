#include "platform/qt/ComeToFront.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <QGuiApplication>
#include <QWidget>

namespace vexil {

namespace {

// Of a client message: 20 bytes in 32-bit words, or as they are.
constexpr int kWords = 32;
constexpr int kBytes = 8;
constexpr std::size_t kMessageBytes = 20;
// The request comes from a program, and not from a pager.
constexpr std::uint32_t kFromProgram = 1;

xcb_atom_t Atom(xcb_connection_t* display, const char* name) {
    const auto cookie = xcb_intern_atom(display, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(display, cookie, nullptr), &std::free);
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

xcb_window_t Root(xcb_connection_t* display) {
    return xcb_setup_roots_iterator(xcb_get_setup(display)).data->root;
}

// The time of the click or key that started the other program, as its startup id tells it; without one the
// window manager takes its own.
std::uint32_t TimeOf(const std::string& startupId) {
    const std::size_t mark = startupId.rfind("_TIME");
    if (mark == std::string::npos) {
        return XCB_CURRENT_TIME;
    }
    return static_cast<std::uint32_t>(std::strtoul(startupId.c_str() + mark + 5, nullptr, 10));
}

// The toolkit would send the time of the last event that it has seen itself. By then another program has been
// used, and window managers take a request with an older time for an intrusion.
void ActivateOnX11(xcb_connection_t* display, std::uint32_t window, const std::string& startupId) {
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = kWords;
    message.window = window;
    message.type = Atom(display, "_NET_ACTIVE_WINDOW");
    message.data.data32[0] = kFromProgram;
    message.data.data32[1] = TimeOf(startupId);
    xcb_send_event(display, 0, Root(display),
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
}

// Tells the desktop that the start it has shown as under way is over. The text goes out in pieces.
void EndStartupOnX11(xcb_connection_t* display, std::uint32_t window, const std::string& startupId) {
    std::string quoted;
    for (const char character : startupId) {
        if (character == '"' || character == '\\') {
            quoted += '\\';
        }
        quoted += character;
    }
    const std::string text = "remove: ID=\"" + quoted + "\"";
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = kBytes;
    message.window = window;
    message.type = Atom(display, "_NET_STARTUP_INFO_BEGIN");
    const xcb_atom_t next = Atom(display, "_NET_STARTUP_INFO");
    // The zero at the end belongs to it.
    for (std::size_t sent = 0; sent <= text.size(); sent += kMessageBytes) {
        const std::size_t count = std::min(kMessageBytes, text.size() + 1 - sent);
        std::memset(message.data.data8, 0, kMessageBytes);
        std::memcpy(message.data.data8, text.c_str() + sent, count);
        xcb_send_event(display, 0, Root(display), XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&message));
        message.type = next;
    }
}

}  // namespace

void ComeToFront(QWidget& window, const std::string& startupId, const std::string& activationToken) {
    if (window.isMinimized()) {
        window.showNormal();
    }
    window.raise();
    // The toolkit's platform without a display has this interface too, without a connection.
    const auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    if (x11 != nullptr && x11->connection() != nullptr) {
        const auto id = static_cast<std::uint32_t>(window.winId());
        ActivateOnX11(x11->connection(), id, startupId);
        if (!startupId.empty()) {
            EndStartupOnX11(x11->connection(), id, startupId);
        }
        xcb_flush(x11->connection());
        return;
    }
    // This is where the toolkit looks for a token, and it takes it away again.
    if (!activationToken.empty()) {
        qputenv("XDG_ACTIVATION_TOKEN", QByteArray::fromStdString(activationToken));
    }
    window.activateWindow();
}

}  // namespace vexil
