#include "balloon/BalloonArguments.h"

#include "balloon/BalloonDelivery.h"
#include "balloon/BalloonState.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"
#include "support/texts/CommandLine.h"
#include "support/texts/StringTools.h"

constexpr LONG DefaultIcon = 102;
constexpr LONG DefaultCharSet = 1;
constexpr LONG MaxTokens = 32;

// In the order in which they are tested.
enum class ArgumentKind : LONG { Time, Tick, CharSet, Title, Text, Icon, Count };
constexpr const char* ArgumentNames[] = {"-time=", "-bt=", "-charset=", "-title=", "-text=", "-icon="};
static_assert(sizeof(ArgumentNames) / sizeof(ArgumentNames[0]) == static_cast<size_t>(ArgumentKind::Count));

static bool BeginsWith(const char* text, const char* prefix) {
    while (*prefix != 0 && *text == *prefix) {
        ++text;
        ++prefix;
    }
    return *prefix == 0;
}

static ArgumentKind KindOf(const char* token) {
    for (LONG kind = 0; kind < static_cast<LONG>(ArgumentKind::Count); ++kind) {
        if (BeginsWith(token, ArgumentNames[kind])) {
            return static_cast<ArgumentKind>(kind);
        }
    }
    return ArgumentKind::Count;
}

static void TakeValue(ArgumentKind kind, const char* value, BalloonArguments* arguments) {
    switch (kind) {
    case ArgumentKind::Time:
        arguments->ShowTime = StrToIntA(value);
        break;
    case ArgumentKind::Tick:
        arguments->Tick = static_cast<DWORD>(StrToIntA(value));
        break;
    case ArgumentKind::CharSet:
        arguments->CharSet = StrToIntA(value);
        break;
    case ArgumentKind::Title:
        CopyText(arguments->Title, value);
        (void)UnquoteText(arguments->Title);
        break;
    case ArgumentKind::Text:
        CopyText(arguments->Text, value);
        (void)UnquoteText(arguments->Text);
        (void)ReplaceString(arguments->Text, "''", "\"");
        UnderscoresToBlanks(arguments->Text);
        break;
    case ArgumentKind::Icon:
        arguments->Icon = StrToIntA(value);
        break;
    case ArgumentKind::Count:
        break;
    }
}

BalloonArguments ReadBalloonArguments() {
    BalloonArguments arguments = {};
    arguments.CharSet = DefaultCharSet;
    arguments.Icon = DefaultIcon;
    bool isTaken[static_cast<size_t>(ArgumentKind::Count)] = {};
    char* tokens[MaxTokens] = {};
    LONG count = 0;
    TokenizeCommandLine(&count, tokens);
    for (LONG i = 0; i < count; ++i) {
        WriteLog(2, "Balloon: token = '%s'", tokens[i]);
        char* const equals = StrChrA(tokens[i], '=');
        if (equals == nullptr) {
            continue;
        }
        ReplaceChar(equals, '~', '-');
        const ArgumentKind kind = KindOf(tokens[i]);
        if (kind == ArgumentKind::Count || isTaken[static_cast<size_t>(kind)]) {
            continue;
        }
        isTaken[static_cast<size_t>(kind)] = true;
        TakeValue(kind, equals + 1, &arguments);
    }
    return arguments;
}

void ShowBalloonByCommandLine() {
    const BalloonArguments arguments = ReadBalloonArguments();
    g_balloonTick = arguments.Tick;
    (void)ShowFreeBalloonAtSysTray(arguments.ShowTime, arguments.CharSet, arguments.Title, arguments.Text,
                                   /*text2=*/"", arguments.Icon);
}
