// A status as the service sends it, with one port and one session of every kind, to be changed by a test.
#pragma once

#include <nlohmann/json.hpp>

namespace vexil {

inline nlohmann::json SampleStatus() {
    return nlohmann::json::parse(R"JSON({
        "version": "3.3.900", "host": "studio", "names": ["studio", "studio.lan"],
        "midi": {"backend": "jack", "running": true, "problem": "", "realtime": ""},
        "attached": true,
        "options": {"wireless": true, "launchMonitor": false, "logging": true, "showConnectors": true,
                    "sendGranularity": 12},
        "memory": "locked",
        "control": "/run/user/1000/vexil3/com.sonavert.driver.vexil3",
        "network": {"speaks": "eth0,wlan0", "problem": "", "key": "0123456789abcdef", "port": 11188,
                    "remarks": ["The computer \"attic\" is reached by air only."]},
        "sessions": [
            {"computer": "stage", "state": "up", "up": true, "problem": "", "address": "192.168.1.6:11188",
             "interface": "eth0", "wireless": false, "key": "0011223344556677", "seconds": 754,
             "roundTrip": 340, "repaired": 3, "lost": 0, "late": 1,
             "ways": [{"from": 88, "to": 21, "incoming": false, "test": false, "problem": ""},
                      {"from": 11, "to": 12, "incoming": true, "test": true,
                       "problem": "Port 12 is a local pipe."}]},
            {"computer": "attic", "state": "calling", "up": false, "problem": "It does not answer.",
             "address": "", "interface": "", "wireless": false, "key": "", "seconds": 7, "roundTrip": null,
             "repaired": 0, "lost": 0, "late": 0,
             "ways": [{"from": 11, "to": 12, "incoming": false, "test": false,
                       "problem": "It does not answer."}]}],
        "hosts": [{"name": "studio", "address": "192.168.1.5", "port": 0, "hardware": "00:11:22:33:44:55",
                   "enabled": true}],
        "ports": [
            {"port": 11, "index": 0, "pipe": false,
             "output": {"name": "Stage piano", "address": "vexil3:Stage piano", "connections": 1,
                        "problem": "", "target": {"computer": "studio", "port": 12}, "route": "local",
                        "routeProblem": "", "warning": "", "messages": 1284, "bytes": 3852, "filtered": 3, "dropped": 1},
             "input": {"name": "Keys", "address": "vexil3:Keys", "connections": 0, "problem": "",
                       "source": {"computer": null, "port": null}, "messages": 0, "bytes": 0},
             "test": {"open": true, "active": true, "target": {"computer": "studio", "port": 12},
                      "routeProblem": "", "messages": 12, "bytes": 36, "filtered": 0, "dropped": 0}},
            {"port": 12, "index": 1, "pipe": true,
             "output": {"name": "Port 12", "address": "vexil3:Port 12", "connections": 2, "problem": "",
                        "target": {"computer": "", "port": 12}, "route": "local", "routeProblem": "",
                        "messages": 7, "bytes": 21, "filtered": 0, "dropped": 0},
             "input": {"name": "Port 12", "address": "vexil3:Port 12", "connections": 2, "problem": "",
                       "source": {"computer": "studio", "port": 12}, "messages": 7, "bytes": 21}},
            {"port": 88, "index": 63, "pipe": false,
             "output": {"name": "Far away", "address": "", "connections": 0,
                        "problem": "The name is taken by another program.",
                        "target": {"computer": "stage", "port": 21}, "route": "nowhere",
                        "routeProblem": "No computer of the name \"stage\" is known.",
                        "messages": 5, "bytes": 15, "filtered": 0, "dropped": 5}}
        ]})JSON");
}

}  // namespace vexil
