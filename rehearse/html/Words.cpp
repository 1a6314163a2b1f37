#include "rehearse/html/Words.h"

#include "rehearse/host/Durations.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace rehearse::html {

namespace {
// A star stands for any text; the German form has the same stars in the same order. quotes: the last star is English
// prose, of the log.
struct Pair {
    std::string_view english, german;
    bool quotes = false;
};
} // namespace
constexpr Pair Phrases[] = {
    // States of ports
    {"ok", "in Ordnung"},
    {"no name", "kein Name"},
    {"not there", "nicht da"},
    {"number at next plug", "Nummer beim nächsten Anstecken"},
    {"held by *", "offen gehalten von *"},
    {"ring with *", "Ring mit *"},
    {"problem *", "Problem *"},
    {"wanted by * too", "auch gewünscht von *"},
    {"wanted by *", "gewünscht von *"},
    {"* is taken", "* ist vergeben"},
    {"* not obtained", "* nicht bekommen"},
    // Shortcomings
    {"* has no name", "* hat keinen Namen"},
    {"* has *, [*] wants *", "* hat *, [*] will *"},
    {"[*] matched nothing", "[*] passte auf nichts"},
    {"what the rules took could not be observed", "was die Regeln nahmen, ließ sich nicht beobachten"},
    // The timeline
    {"story *: nothing to do, since *", "Geschichte *: nichts zu tun (*)"},
    {"story *: *", "Geschichte *: *"},
    {"plugged in:", "angesteckt:"},
    {"pulled out:", "abgezogen:"},
    {"pulled out and back * ms later:", "abgezogen und * ms später wieder da:"},
    {"moved to port * of *:", "umgesteckt an Buchse * von *:"},
    {"leaves:", "geht:"},
    {"runs as *:", "läuft als *:"},
    {"runs without a COM name:", "läuft ohne COM-Namen:"},
    {"does not start (problem *):", "startet nicht (Problem *):"},
    {"loses its DOS name *:", "verliert seinen DOS-Namen *:"},
    {"restarts", "startet neu"},
    {"asks for a restart of", "verlangt den Neustart von"},
    {"could not restart", "konnte nicht neu starten:"},
    {"registry name of", "Name in der Registrierung von"},
    {"changes the DOS name of", "ändert den DOS-Namen von"},
    {"deletes the DOS name * (*)", "löscht den DOS-Namen * (*)"},
    {"makes the DOS name * (*)", "legt den DOS-Namen * an (*)"},
    {"the DOS name * is deleted", "der DOS-Name * wird gelöscht"},
    {"the DOS name * is made (*)", "der DOS-Name * wird angelegt (*)"},
    {"* is torn from *, which has it open:", "* wird * entrissen, das ihn offen hat:"},
    {"* cannot restart, * has it open:", "* kann nicht neu starten, * hat ihn offen:"},
    {"service is *", "der Dienst ist *"},
    {"the service is asked to stop", "der Dienst soll anhalten"},
    {"control * to the service", "Steuerung * an den Dienst"},
    {"it could not be started: *", "ließ sich nicht starten: *", true},
    {"the service is started", "der Dienst wird gestartet"},
    {"Quillmarch is started", "Quillmarch wird gestartet"},
    {"starts * as * (*) in session *", "startet * als * (*) in Sitzung *"},
    {"* ends with *", "* endet mit *"},
    {"* runs *", "* startet *"},
    {"* cannot run *", "* kann * nicht starten"},
    {"* is not logged on, and runs nothing", "* ist nicht angemeldet und startet nichts"},
    {"problem * of", "Problem * an"},
    {"the problem ends of", "das Problem endet an"},
    {"* goes to no window", "* geht an kein Fenster"},
    {"* goes to '*'", "* geht an „*“"},
    {"the task bar goes", "die Taskleiste verschwindet"},
    {"the task bar moves", "die Taskleiste wandert"},
    {"the window '*' is shown at *", "das Fenster „*“ erscheint bei *"},
    {"the window '*' goes", "das Fenster „*“ verschwindet"},
    {"there is no balloon to click on", "es gibt keine Sprechblase zum Anklicken"},
    {"there is no balloon for the mouse to go to", "es gibt keine Sprechblase, zu der die Maus gehen könnte"},
    {"the mouse goes to *", "die Maus geht zu *"},
    {"* opens the balloon's pipe and writes nothing", "* öffnet die Pipe der Sprechblase und schreibt nichts"},
    {"* cannot open *", "* kann * nicht öffnen"},
    {"* opens *", "* öffnet *"},
    {"* is let go of", "* wird losgelassen"},
    {"* is held by nobody", "* wird von niemandem gehalten"},
    {"from now on nothing fails, refuses or is held open",
     "von nun an schlägt nichts fehl, weigert sich nichts, wird nichts offen gehalten"},
    {"the configuration is edited", "die Konfiguration wird geändert"},
    {"the configuration is deleted", "die Konfiguration wird gelöscht"},
    {"registry value * is set", "der Registrierungswert * wird gesetzt"},
    {"Windows starts", "Windows startet"},
    {"Windows will start again when it is off", "Windows startet wieder, wenn es aus ist"},
    {"Windows starts (fast startup)", "Windows startet (Schnellstart)"},
    {"Windows shuts down", "Windows fährt herunter"},
    {"Windows goes off for a fast startup", "Windows schaltet für einen Schnellstart ab"},
    {"Windows ends the services that still run", "Windows beendet die Dienste, die noch laufen"},
    {"the machine is off", "der Rechner ist aus"},
    {"asked whether the machine may sleep", "gefragt, ob der Rechner schlafen darf"},
    {"the machine goes to sleep", "der Rechner schläft ein"},
    {"the machine wakes (*, devices come again)", "der Rechner wacht auf (*, Geräte kommen neu)"},
    {"the machine wakes (*)", "der Rechner wacht auf (*)"},
    {"the machine sleeps: '*' waits until it wakes", "der Rechner schläft: „*“ wartet, bis er aufwacht"},
    {"the machine does not run: no '*'", "der Rechner läuft nicht: kein „*“"},
    {"* logs on to session *", "* meldet sich in Sitzung * an"},
    {"session * ends", "Sitzung * endet"},
    {"session * is *", "Sitzung * ist *"},
    {"shows a balloon in session *: '*', '*'", "zeigt eine Sprechblase in Sitzung *: „*“, „*“"},
    {"changes its balloon to '*', '*'", "ändert seine Sprechblase zu „*“, „*“"},
    {"the balloon '*' goes (*)", "die Sprechblase „*“ geht (*)"},
    {"says: *", "sagt: *", true},
    {"says of *: *", "sagt zu *: *", true},
    {"checks *:", "prüft *:"},
    {"so * cannot have *: *", "also kann * nicht * haben: *", true},
    {"so *", "also *", true},
    // Why a number was refused
    {"in use by *", "belegt durch *"},
    {"a dead name that could not be deleted", "ein toter Name, der sich nicht löschen ließ"},
    {"its present holder is about to restart", "wer ihn hat, startet gleich neu"},
    {"the registry could not be written", "die Registrierung ließ sich nicht schreiben"},
    {"refused", "verweigert"},
};

// The texts that the stars stand for, the shortest that fit; nothing if the text is another one.
static std::optional<std::vector<std::string>> Fit(std::string_view text, std::string_view pattern) {
    std::vector<std::string> stars;
    for (;;) {
        const std::size_t star = pattern.find('*');
        if (!text.starts_with(pattern.substr(0, star))) {
            return std::nullopt;
        }
        if (star == std::string_view::npos) {
            return text.size() == pattern.size() ? std::optional(stars) : std::nullopt;
        }
        text.remove_prefix(star);
        pattern.remove_prefix(star + 1);
        const std::string_view next = pattern.substr(0, pattern.find('*'));
        const std::size_t end = pattern.empty()                 ? text.size()
                                : next.size() == pattern.size() ? text.size() - std::min(text.size(), next.size())
                                                                : text.find(next);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        stars.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
    }
}

static const Pair* PairOf(const std::string& english, std::vector<std::string>& stars) {
    for (const Pair& pair : Phrases) {
        if (auto fit = Fit(english, pair.english)) {
            stars = std::move(*fit);
            return &pair;
        }
    }
    return nullptr;
}

static std::string Filled(std::string_view form, const std::vector<std::string>& stars) {
    std::string text;
    std::size_t used = 0;
    for (const char c : form) {
        if (c == '*' && used < stars.size()) {
            text += stars[used++];
        } else {
            text += c;
        }
    }
    return text;
}

// The length of a character that nobody would see, or that turns what stands around it; 0 for any other.
static std::size_t HiddenLength(std::string_view rest) {
    const auto at = [&](std::size_t i) { return i < rest.size() ? static_cast<unsigned char>(rest[i]) : 0; };
    if ((at(0) < ' ' && at(0) != '\n' && at(0) != '\t') || at(0) == 0x7F) {
        return 1;
    }
    if (at(0) == 0xC2 && at(1) >= 0x80 && at(1) < 0xA0) {
        return 2;
    }
    const bool turns =
        at(0) == 0xE2 && ((at(1) == 0x80 && (at(2) >= 0xAA ? at(2) <= 0xAE : at(2) == 0x8E || at(2) == 0x8F)) ||
                          (at(1) == 0x81 && at(2) >= 0xA6 && at(2) <= 0xA9));
    return turns ? 3 : 0;
}

std::string Escaped(std::string_view utf8) {
    std::string text;
    text.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        if (const std::size_t hidden = HiddenLength(utf8.substr(i))) {
            text += "\xE2\x90\xA3"; // an open box
            i += hidden - 1;
            continue;
        }
        switch (utf8[i]) {
        case '&':
            text += "&amp;";
            break;
        case '<':
            text += "&lt;";
            break;
        case '>':
            text += "&gt;";
            break;
        case '"':
            text += "&quot;";
            break;
        case '\'':
            text += "&#39;";
            break;
        default:
            text += utf8[i];
        }
    }
    return text;
}

std::string EscapedAnsi(const std::string& ansi) {
    return Escaped(machine::Utf8FromAnsi(ansi));
}

std::string Speech::Phrase(const std::string& english) const {
    std::vector<std::string> stars;
    const Pair* pair = m_isGerman ? PairOf(english, stars) : nullptr;
    return pair ? Filled(pair->german, stars) : english;
}

std::string Speech::Markup(const std::string& english) const {
    std::vector<std::string> stars;
    const Pair* pair = m_isGerman ? PairOf(english, stars) : nullptr;
    if (!pair) {
        return Foreign(english);
    }
    for (std::string& star : stars) {
        star = pair->quotes && &star == &stars.back() ? Foreign(star) : Escaped(star);
    }
    return Filled(Escaped(pair->german), stars);
}

std::string Speech::Foreign(const std::string& english) const {
    return m_isGerman ? "<span lang=\"en\">" + Escaped(english) + "</span>" : Escaped(english);
}

std::string Speech::Time(std::uint64_t ms) const {
    std::string text = TimeText(ms);
    if (m_isGerman) {
        std::replace(text.begin(), text.end(), '.', ',');
    }
    return text;
}

std::string Speech::Sentence(const Verdict& verdict) const {
    if (!m_isGerman) {
        return verdict.Sentence();
    }
    const auto count = [&](auto isMeant) { return std::count_if(verdict.ports.begin(), verdict.ports.end(), isMeant); };
    const auto has = [](const PortVerdict& port) {
        return std::find(port.wanted.begin(), port.wanted.end(), port.facts.number) != port.wanted.end();
    };
    const auto ruled = count([](const auto& port) { return port.facts.isPresent && !port.wanted.empty(); });
    const auto satisfied = count([&](const auto& port) { return port.facts.isPresent && has(port); });
    const auto nameless = count([](const auto& port) { return port.shortfall == Shortfall::NoName; });
    const auto idle =
        std::count_if(verdict.rules.begin(), verdict.rules.end(), [](const auto& rule) { return rule.took.empty(); });
    std::string text;
    if (!verdict.isObserved) {
        text = "Was die Regeln nahmen, ließ sich nicht beobachten";
    } else if (ruled == 0) {
        text = "Kein Port, der da ist, hat eine Regel mit einer Nummer";
    } else if (satisfied == ruled) {
        text = ruled == 1 ? "Der eine Port mit einer Regel hat eine gewünschte Nummer"
                          : fmt::format("Alle {} Ports mit einer Regel haben eine gewünschte Nummer", ruled);
    } else if (satisfied == 0) {
        text = ruled == 1 ? "Der eine Port mit einer Regel hat keine gewünschte Nummer"
                          : fmt::format("Keiner der {} Ports mit einer Regel hat eine gewünschte Nummer", ruled);
    } else {
        text = fmt::format("{} von {} Ports mit einer Regel {} eine gewünschte Nummer", satisfied, ruled,
                           satisfied == 1 ? "hat" : "haben");
    }
    const auto add = [&text](std::size_t many, const char* one, const char* several) {
        if (many) {
            text += fmt::format("; {} {}", many, many == 1 ? one : several);
        }
    };
    add(verdict.rings.size(), "Ring von Ports, die einander die Nummern streitig machen",
        "Ringe von Ports, die einander die Nummern streitig machen");
    add(nameless, "Port hat keinen Namen", "Ports haben keinen Namen");
    add(idle, "Regel passte auf nichts", "Regeln passten auf nichts");
    add(verdict.dangers.size(), "Gefahr für einen Port, der benutzt wird", "Gefahren für Ports, die benutzt werden");
    return text + ".";
}

} // namespace rehearse::html
