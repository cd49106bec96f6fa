// The INI editor once more, written for plainness: whole-text operations on a vector of strings, every
// question asked anew from the first line. Its results are compared with IniFile's.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace vexil::test {

class NaiveIni {
  public:
    explicit NaiveIni(const std::string& text = {}) { Read(text); }

    std::optional<std::string> GetValue(const std::string& section, const std::string& key) const {
        const std::optional<Bounds> body = section.empty() ? std::nullopt : Body(section);
        const std::optional<std::size_t> at = body ? KeyLine(*body, key) : std::nullopt;
        return at ? std::optional<std::string>(ValueOf(lines[*at])) : std::nullopt;
    }

    void SetValue(const std::string& section, const std::string& key, const std::string& value) {
        if (section.empty() || key.empty()) {
            return;
        }
        const std::optional<Bounds> body = Body(section);
        const std::optional<std::size_t> at = body ? KeyLine(*body, key) : std::nullopt;
        if (value.empty()) {
            if (at) {
                Erase(*at);
            }
        } else if (at) {
            lines[*at] = key + "=" + value;
            modified = true;
        } else if (body) {
            Insert(body->end, key + "=" + value);
        } else {
            Insert(lines.size(), "[" + section + "]");
            Insert(lines.size(), key + "=" + value);
        }
    }

    void AddLine(const std::string& section, const std::string& line) {
        if (section.empty()) {
            return;
        }
        if (!Body(section)) {
            Insert(lines.size(), "[" + section + "]");
            if (!line.empty()) {
                Insert(lines.size(), line);
            }
            return;
        }
        const Bounds body = *Body(section);
        if (!line.empty() && !ExactLine(body, line)) {
            Insert(body.end, line);
        }
    }

    void RemoveLine(const std::string& section, const std::string& line) {
        if (section.empty()) {
            return;
        }
        const std::optional<Bounds> body = Body(section);
        if (!body) {
            Insert(lines.size(), "[" + section + "]");
        } else if (const std::optional<std::size_t> at = ExactLine(*body, line)) {
            Erase(*at);
        }
    }

    std::vector<std::string> SectionNames() const {
        std::vector<std::string> names;
        for (const std::string& line : lines) {
            if (const auto name = HeaderName(line)) {
                names.push_back(*name);
            }
        }
        return names;
    }

    std::vector<std::string> KeyNames(const std::string& section) const {
        std::vector<std::string> keys;
        const std::optional<Bounds> body = section.empty() ? std::nullopt : Body(section);
        for (std::size_t at = body ? body->begin : 0; body && at < body->end; ++at) {
            if (const auto key = KeyOf(lines[at])) {
                keys.push_back(*key);
            }
        }
        return keys;
    }

    std::vector<std::string> SectionLines(const std::string& section) const {
        std::vector<std::string> texts;
        const std::optional<Bounds> body = section.empty() ? std::nullopt : Body(section);
        for (std::size_t at = body ? body->begin : 0; body && at < body->end; ++at) {
            if (const std::string text = Trimmed(Seen(lines[at])); !text.empty()) {
                texts.push_back(text);
            }
        }
        return texts;
    }

    // The file's bytes after closing, `before` being those before.
    std::string Saved(const std::string& before) const {
        if (!modified || lines.empty()) {
            return before;
        }
        std::string text;
        for (const std::string& line : lines) {
            text += line + "\n";
        }
        return text;
    }

    const std::vector<std::string>& Lines() const { return lines; }

  private:
    struct Bounds {
        std::size_t begin = 0;
        std::size_t end = 0;
    };

    static std::string Seen(const std::string& line) { return line.substr(0, line.find('\0')); }

    static std::string Trimmed(std::string text) {
        while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0) {
            text.pop_back();
        }
        while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())) != 0) {
            text.erase(text.begin());
        }
        return text;
    }

    static std::optional<std::string> HeaderName(const std::string& line) {
        const std::string seen = Seen(line);
        const std::size_t open = seen.find('[');
        const std::size_t close = open == std::string::npos ? open : seen.find(']', open);
        if (close == std::string::npos) {
            return std::nullopt;
        }
        return seen.substr(open + 1, close - open - 1);
    }

    static std::optional<std::string> KeyOf(const std::string& line) {
        const std::string seen = Seen(line);
        const std::size_t split = seen.find('=');
        if (split == std::string::npos || split == 0) {
            return std::nullopt;
        }
        const std::string key = Trimmed(seen.substr(0, split));
        return key.empty() ? std::nullopt : std::optional<std::string>(key);
    }

    static std::string ValueOf(const std::string& line) {
        const std::string seen = Seen(line);
        return Trimmed(seen.substr(seen.find('=') + 1));
    }

    std::optional<Bounds> Body(const std::string& section) const {
        for (std::size_t at = 0; at < lines.size(); ++at) {
            if (HeaderName(lines[at]) == section) {
                Bounds bounds{at + 1, at + 1};
                while (bounds.end < lines.size() && !HeaderName(lines[bounds.end])) {
                    ++bounds.end;
                }
                return bounds;
            }
        }
        return std::nullopt;
    }

    std::optional<std::size_t> KeyLine(const Bounds& body, const std::string& key) const {
        for (std::size_t at = body.begin; at < body.end; ++at) {
            if (!key.empty() && KeyOf(lines[at]) == key) {
                return at;
            }
        }
        return std::nullopt;
    }

    std::optional<std::size_t> ExactLine(const Bounds& body, const std::string& line) const {
        for (std::size_t at = body.begin; at < body.end; ++at) {
            if (Seen(lines[at]) == line) {
                return at;
            }
        }
        return std::nullopt;
    }

    void Insert(std::size_t at, const std::string& line) {
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), line);
        modified = true;
    }

    void Erase(std::size_t at) {
        lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(at));
        modified = true;
    }

    void Read(const std::string& text) {
        std::string piece;
        for (std::size_t at = 0; at < text.size(); ++at) {
            piece += text[at];
            if (text[at] == '\n' || piece.size() == 1022 || at + 1 == text.size()) {
                while (!piece.empty() && (piece.back() == '\n' || piece.back() == '\r')) {
                    piece.pop_back();
                }
                lines.push_back(piece);
                piece.clear();
            }
        }
    }

    std::vector<std::string> lines;
    bool modified = false;
};

}  // namespace vexil::test
