#include "client/PanelSentences.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "shared/System/PrintableText.h"

namespace vexil {

namespace {

using Weight = Sentence::Weight;

constexpr std::uint64_t kDay = 24 * 60 * 60;
constexpr const char* kCompareKeys =
    "Compare the key with the one that \"vexil3ctl network\" shows over there, and accept it only if both "
    "are the same.";

// Without the full stop of a sentence that goes on.
std::string Open(std::string sentence) {
    if (!sentence.empty() && sentence.back() == '.') {
        sentence.pop_back();
    }
    return Printable(sentence);
}

std::string Counted(std::size_t count, const char* one, const char* several) {
    return std::to_string(count) + " " + (count == 1 ? one : several);
}

std::string NameOfFile(const std::string& path) {
    return Printable(path.substr(path.rfind('/') + 1));
}

// "12:03", and where that was another day "2026-11-22 12:03". Empty for what is no time.
std::string TimeText(std::uint64_t time, std::uint64_t now) {
    const auto then = static_cast<std::time_t>(time);
    const auto present = static_cast<std::time_t>(now);
    std::tm thenParts{};
    std::tm nowParts{};
    if (localtime_r(&then, &thenParts) == nullptr || localtime_r(&present, &nowParts) == nullptr) {
        return "";
    }
    const bool isToday = thenParts.tm_yday == nowParts.tm_yday && thenParts.tm_year == nowParts.tm_year;
    std::array<char, 32> text{};
    return {text.data(),
            std::strftime(text.data(), text.size(), isToday ? "%H:%M" : "%Y-%m-%d %H:%M", &thenParts)};
}

std::string BackendName(const std::string& backend) {
    return backend == "jack" ? "JACK" : backend == "alsa" ? "ALSA" : Printable(backend);
}

// A driver's status in sentences.
class ReportSentences {
  public:
    ReportSentences(const StatusReport& itsReport, std::uint64_t itsTime) : report(itsReport), now(itsTime) {}

    void AddTroubles(std::vector<Sentence>& sentences) const {
        if (!report.running && !report.midiProblem.empty()) {
            sentences.push_back({Weight::Trouble,
                                 Open(report.midiProblem),
                                 "Music programs do not see the ports until the MIDI system runs.",
                                 {}});
        }
        if (report.network && !report.network->problem.empty()) {
            sentences.push_back({Weight::Trouble,
                                 Open(report.network->problem),
                                 "Nothing is played to other computers until then.",
                                 {}});
        }
        AddPorts(sentences);
    }

    void AddNotices(std::vector<Sentence>& sentences) const {
        if (!report.network) {
            return;
        }
        for (const RefusalReport& each : report.network->refused) {
            const std::string name = Printable(each.name);
            sentences.push_back({Weight::Notice,
                                 "A computer with another key than before calls itself \"" + name + "\"",
                                 "Its key is " + Printable(each.key) + ". " + kCompareKeys,
                                 Remedy{"Accept", {"pin", each.name, each.key}}});
        }
    }

    Sentence Summary() const {
        std::string text = "Driver running";
        text += report.backend == "none" ? ", no MIDI system" : ", " + BackendName(report.backend);
        text += ", " + Counted(report.ports.size() + report.portsLeftOut, "port", "ports");
        const auto up =
            static_cast<std::size_t>(std::count_if(report.sessions.begin(), report.sessions.end(),
                                                   [](const SessionReport& session) { return session.up; }));
        if (up != 0) {
            text += ", " + Counted(up, "computer", "computers");
        }
        return {Weight::Fine, text, "", {}};
    }

    // What is worth a line only in the list of all.
    void AddDetails(std::vector<Sentence>& sentences) const {
        if (!report.showConnectors) {
            sentences.push_back({Weight::Notice,
                                 "Show Connectors is off: music programs do not list the ports",
                                 "Tick it and apply, if they are to.",
                                 {}});
        }
        if (!report.realtimeProblem.empty()) {
            sentences.push_back({Weight::Notice,
                                 Open(report.realtimeProblem),
                                 "Notes may come late while the computer is busy.",
                                 {}});
        }
        if (report.network) {
            for (const std::string& remark : report.network->remarks) {
                // Who is refused has a sentence and a button already.
                if (remark.find(" another key than before ") == std::string::npos) {
                    sentences.push_back({Weight::Notice, Open(remark), "", {}});
                }
            }
        }
        for (const SessionReport& session : report.sessions) {
            const bool isNew = session.up && session.since != 0 && now < session.since + kDay;
            if (isNew) {
                sentences.push_back(
                    {Weight::Notice,
                     "\"" + Printable(session.computer) + "\" was connected for the first time at " +
                         TimeText(session.since, now),
                     "Its key is " + Printable(session.key) + ". If you do not know that computer, block it.",
                     Remedy{"Block", {"block", session.key}}});
            }
        }
    }

  private:
    // Ports with the same problem share a sentence.
    struct Trouble {
        std::string problem;
        std::vector<unsigned> ports;
        const SessionReport* session = nullptr;
    };

    void AddPorts(std::vector<Sentence>& sentences) const {
        std::vector<Trouble> troubles;
        const auto add = [&](unsigned port, const std::string& problem, const SessionReport* session) {
            // What keeps all of them from being heard is said once.
            if (problem.empty() || problem == report.midiProblem) {
                return;
            }
            auto found = std::find_if(troubles.begin(), troubles.end(),
                                      [&](const Trouble& each) { return each.problem == problem; });
            if (found == troubles.end()) {
                found = troubles.insert(found, {problem, {}, session});
            }
            if (found->ports.empty() || found->ports.back() != port) {
                found->ports.push_back(port);
            }
        };
        for (const PortReport& port : report.ports) {
            if (port.output) {
                if (report.showConnectors) {
                    add(port.port, port.output->endpoint.problem, nullptr);
                }
                add(port.port, port.output->routeProblem, SessionOf(*port.output));
                add(port.port, port.output->warning, nullptr);
            }
            if (port.input && report.showConnectors) {
                add(port.port, port.input->endpoint.problem, nullptr);
            }
        }
        for (const Trouble& trouble : troubles) {
            sentences.push_back(SentenceOf(trouble));
        }
        AddSessionsWithoutPorts(sentences, troubles);
    }

    // A computer that is refused although no port of this one wants it.
    void AddSessionsWithoutPorts(std::vector<Sentence>& sentences,
                                 const std::vector<Trouble>& troubles) const {
        for (const SessionReport& session : report.sessions) {
            const bool isTold = std::any_of(troubles.begin(), troubles.end(),
                                            [&](const Trouble& each) { return each.session == &session; });
            if (!isTold && !session.needs.empty() && !session.problem.empty()) {
                sentences.push_back(SentenceOf({session.problem, {}, &session}));
            }
        }
    }

    // The connection with the computer to which an output leads, where that is what keeps it from being
    // heard.
    const SessionReport* SessionOf(const OutputReport& output) const {
        const auto found =
            std::find_if(report.sessions.begin(), report.sessions.end(), [&](const SessionReport& session) {
                return !session.up && session.computer == output.target.computer &&
                       session.problem == output.routeProblem;
            });
        return found == report.sessions.end() ? nullptr : &*found;
    }

    Sentence SentenceOf(const Trouble& trouble) const {
        Sentence sentence{Weight::Trouble, PortsText(trouble.ports) + Open(trouble.problem), "", {}};
        if (trouble.session == nullptr) {
            sentence.advice = "Nothing that is played there is heard until this is put right.";
            return sentence;
        }
        const SessionReport& session = *trouble.session;
        if (session.seconds != 0) {
            sentence.text += " (since " + TimeText(now - std::min(now, session.seconds), now) + ")";
        }
        if (session.needs == "key") {
            sentence.advice = kCompareKeys;
            sentence.remedy = Remedy{"Accept", {"pin", session.computer}};
        } else if (session.needs == "secret") {
            sentence.advice = "Enter the secret that is set over there; then all computers must know it.";
            sentence.remedy = Remedy{"Enter Secret", {"secret"}, true};
        } else {
            sentence.advice =
                "See that the other computer is on, on the same network, and that Vexil III runs there.";
        }
        return sentence;
    }

    static std::string PortsText(const std::vector<unsigned>& ports) {
        if (ports.empty()) {
            return "";
        }
        std::string text = (ports.size() == 1 ? "Port " : "Ports ") + std::to_string(ports[0]);
        if (ports.size() == 2) {
            text += " and " + std::to_string(ports[1]);
        } else if (ports.size() > 2) {
            text = "Port " + std::to_string(ports[0]) + " and " + std::to_string(ports.size() - 1) + " more";
        }
        return text + ": ";
    }

    const StatusReport& report;
    const std::uint64_t now;
};

Sentence Absence() {
    return {
        Weight::Trouble,
        "No driver is running",
        "Music programs do not see the ports. \"systemctl --user start vexil3d.socket\" starts it; what is "
        "applied meanwhile is stored, and taken up then.",
        {}};
}

Sentence Silence() {
    return {Weight::Trouble,
            "The driver does not answer",
            "It is busy or stopped. If that lasts, \"systemctl --user restart vexil3d\" starts it anew.",
            {}};
}

void AddDriver(std::vector<Sentence>& sentences, const PanelSituation& situation) {
    switch (situation.driver) {
        case PanelSituation::Driver::Absent:
            sentences.push_back(Absence());
            break;
        case PanelSituation::Driver::Silent:
            sentences.push_back(Silence());
            break;
        case PanelSituation::Driver::Unusable:
            sentences.push_back(
                {Weight::Trouble, "The driver cannot be asked: " + Open(situation.driverProblem), "", {}});
            break;
        case PanelSituation::Driver::Running:
            if (!situation.report) {
                sentences.push_back({Weight::Trouble,
                                     "The driver's status makes no sense",
                                     "Panel and driver are of different versions.",
                                     {}});
            }
            break;
        case PanelSituation::Driver::Unknown:
            break;
    }
}

std::string FileText(const PanelSituation& situation) {
    switch (situation.fileUse) {
        case PanelSituation::FileUse::Loaded:
            return NameOfFile(situation.file) + " was loaded";
        case PanelSituation::FileUse::Saved:
            return NameOfFile(situation.file) + " was saved";
        case PanelSituation::FileUse::None:
            break;
    }
    return "";
}

}  // namespace

std::vector<Sentence> SentencesOf(const PanelSituation& situation) {
    std::vector<Sentence> sentences;
    if (!situation.notStored.empty()) {
        sentences.push_back({Weight::Trouble,
                             "Not stored: " + Open(situation.notStored),
                             "The window still shows the settings. Save keeps them in a file; Apply tries "
                             "again after the next change.",
                             {}});
    }
    // One that comes later reads what is stored then.
    if (!situation.notTakenUp.empty() && situation.driver != PanelSituation::Driver::Absent) {
        sentences.push_back({Weight::Trouble,
                             "Stored, but the driver has not taken it up: " + Open(situation.notTakenUp),
                             "It does so by itself as soon as it can.",
                             {}});
    }
    AddDriver(sentences, situation);
    const bool isRunning = situation.driver == PanelSituation::Driver::Running && situation.report;
    std::optional<ReportSentences> report;
    if (isRunning) {
        report.emplace(*situation.report, situation.reportTime);
        report->AddTroubles(sentences);
        report->AddNotices(sentences);
    }
    if (situation.hasChanges) {
        sentences.push_back(
            {Weight::Notice, "Changes are not applied", "Apply stores them and tells the driver.", {}});
    }
    if (report) {
        sentences.push_back(report->Summary());
        report->AddDetails(sentences);
    }
    if (situation.fileUse != PanelSituation::FileUse::None) {
        sentences.push_back({Weight::Fine, FileText(situation), Printable(situation.file), {}});
    }
    return sentences;
}

Sentence LineOf(const PanelSituation& situation) {
    const std::vector<Sentence> sentences = SentencesOf(situation);
    if (sentences.empty()) {
        return {};
    }
    Sentence line = sentences.front();
    const std::string file = FileText(situation);
    if (line.weight != Weight::Trouble && !file.empty() && line.text != file) {
        line.text = file + ". " + line.text;
    }
    return line;
}

}  // namespace vexil
