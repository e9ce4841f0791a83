#include "Documents.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Api.h"
#include "FakeModemWords.h"
#include "Values.h"

namespace documents {

namespace {

using nlohmann::ordered_json;

constexpr char COMPLETION[] = R"(# Completion of modemctl: . <(modemctl completion bash), or zsh
_modemctl() {
    [ -z "${ZSH_VERSION:-}" ] || emulate -L ksh
    local word=${2-${COMP_WORDS[COMP_CWORD]}} command= last= given=0 i words= path form=%s
    if [[ $word == @* ]]; then  # a file; behind @" bash does it by itself
        case ${COMP_WORDS[COMP_CWORD]} in
            [\"\']*) ;;
            *) form=%q; IFS= read word <<<"$word" ;;  # without its backslashes
        esac
        COMPREPLY=()
        for path in "${word#@}"*; do
            [ -e "$path" ] || continue
            [ ! -d "$path" ] || path=$path/
            printf -v path "@$form" "$path"
            COMPREPLY+=("$path")
        done
        [[ ${COMPREPLY-} != */ ]] || compopt -o nospace
        return
    fi
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            @VALUED@) ((i++)) ;;
            -*) ;;
            *) command=${command:-${COMP_WORDS[i]}} last=${COMP_WORDS[i]} given=$((given + 1)) ;;
        esac
    done
    case $((i > COMP_CWORD)):$given:$command:$word in
        0:*:-*) words='@OPTIONS@' ;;
        0:0:*) words='@COMMANDS@' ;;
        0:1:call:*) words='@METHODS@' ;;
        0:1:show:*) words='@METHODS@' ;;
        0:1:completion:*) words='bash zsh' ;;
        0:1:fake:*) words='@FAKE_COMMANDS@' ;;
        0:2:fake:*) case $last in
            connect|disconnect) words='@FAKE_SERVICES@all' ;;
            fail|delay|silence|patch|ok|calls) words='@FAKE_FUNCTIONS@' ;;
            help) words='functions keys services' ;;
            set|state) words=$(for instance in 0 1; do
                modemctl --timeout 1 --instance $instance fake help keys 2>/dev/null
                done | sed '/^ok$/d; s/ .*//') ;;
            esac ;;
    esac
    COMPREPLY=($(compgen -W "$words" -- "$word"))
}
)";

constexpr char COMPLETE_IN_BASH[] = "complete -o default -F _modemctl modemctl\n";

constexpr char COMPLETE_IN_ZSH[] = R"(autoload -U +X bashcompinit && bashcompinit
_modemctl_or_file() {
    if compset -P @; then _files; else _bash_complete -o default -F _modemctl; fi
}
compdef _modemctl_or_file modemctl
)";

constexpr char MAN_PAGE[] = R"(.TH MODEMCTL 1
.SH NAME
modemctl \- client of the modem service
.SH SYNOPSIS
.B modemctl
[\fIOPTION\fR...] \fICOMMAND\fR [\fIWORD\fR...]
.SH COMMANDS
@COMMANDS@.SH OPTIONS
They stand before the command or behind it; what follows \-\- is no option.
@OPTIONS@.SH METHODS
Bytes are given as hex:0a0b, @file for the content of a file, [10,11] or text:abc; a path stands for
itself. A number may be written as 0x1f.
@METHODS@.SH EXIT STATUS
0 answered with success, 1 answered with an error, 2 wrong usage or output that cannot be written,
3 no service, 4 no answer in time.
.SH ENVIRONMENT
OX_RUNTIME_DIR is the folder of the service's sockets; OX_LOG_FILE the log that \-\-why reads, if the
host has it elsewhere; NO_COLOR keeps a terminal without colour.
.SH EXAMPLES
.nf
modemctl call setOperatingMode 1
modemctl \-\-json call \-\-serial 7 getOperatingMode
modemctl call writeNVItem 50 0 0 hex:0a0b
modemctl call \-\-out data.bin readNVItem 50 0 0
modemctl show writeNVItem
modemctl watch \-\-time
modemctl watch \-\-confirm\-log
modemctl status
modemctl at 'AT+LOG=1,tc7'
modemctl fake connect nas
modemctl log \-\-svg picture.svg log.txt
)";

void replace(std::string& text, const std::string& mark, const std::string& by) {
    for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += by.size()) {
        text.replace(at, mark.size(), by);
    }
}

/** A paragraph of the manual page that prints its texts as they are. */
std::string paragraph(const std::string& head, const std::string& body) {
    std::string text = ".TP\n.B " + head + "\n" + body + "\n";
    replace(text, "\\", "\\e");
    replace(text, "-", "\\-");
    return text;
}

std::string describeAtLength(const hal::Method& method) {
    std::string head = method.name;
    std::string body = method.doc;
    for (size_t i = 1; i < method.argCount; ++i) {
        const hal::Field& field = method.args[i];
        head += std::string(" ") + field.name;
        body += std::string("\n.br\n") + field.name + " (" + field.type->name + "): " + field.doc;
    }
    return paragraph(head, body);
}

/** The program's own options and those of its commands, --help once. */
std::vector<const CLI::Option*> optionsOf(const CLI::App& app) {
    std::vector<const CLI::Option*> options = app.get_options();
    for (const CLI::App* command : commandsOf(app)) {
        const auto own = command->get_options(
                [&](const CLI::Option* option) { return option != command->get_help_ptr(); });
        options.insert(options.end(), own.begin(), own.end());
    }
    return options;
}

/** The texts of all things, in a row. */
template <class Thing, class Text>
std::string all(const std::vector<const Thing*>& things, Text text) {
    std::string joined;
    for (const Thing* thing : things) {
        joined += text(*thing);
    }
    return joined;
}

std::string describe(const hal::Method& method) {
    ordered_json list = ordered_json::array();
    for (size_t i = 1; i < method.argCount; ++i) {
        list.push_back({{"name", method.args[i].name}, {"type", method.args[i].type->name}});
    }
    return ordered_json{{"method", method.name}, {"arguments", list}}.dump() + '\n';
}

std::string signature(const hal::Method& method) {
    const std::string arguments = api::arguments(method);
    return method.name + (arguments.empty() ? "" : ' ' + arguments);
}

/** A line for each field, and below those of structs their members. */
std::string describeFields(const hal::Field* fields, size_t count, const std::string& indent) {
    std::string text;
    for (const hal::Field* field = fields; field != fields + count; ++field) {
        const std::string doc = field->doc;
        text += indent + field->name + " (" + field->type->name + ')' +
                (doc.empty() ? "" : ": " + doc) + '\n' +
                describeFields(field->type->fields, field->type->fieldCount, indent + "    ");
    }
    return text;
}

}  // namespace

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands(
            [](const CLI::App* command) { return !command->get_group().empty(); });
}

std::string list(bool json, bool aligned) {
    size_t width = 0;
    for (const hal::Method* method : api::callable()) {
        width = std::max(width, aligned ? signature(*method).size() : 0);
    }
    return all(api::callable(), [=](const hal::Method& method) {
        const std::string comment = method.doc;
        std::string text = signature(method);
        text.resize(std::max(width, text.size()), ' ');
        text += "  " + comment.substr(0, comment.find('\n'));
        text.erase(text.find_last_not_of(' ') + 1);
        return json ? describe(method) : text + '\n';
    });
}

std::string show(const hal::Method& method) {
    std::string comment = method.doc;
    replace(comment, "\n", "\n    ");
    std::string text = signature(method) + "\n    " + comment + '\n' +
                       describeFields(method.args + 1, method.argCount - 1, "    ");
    text += "\nExample\n    modemctl call " + std::string(method.name);
    for (size_t i = 1; i < method.argCount; ++i) {
        const hal::Type& type = *method.args[i].type;
        text += values::isBytes(type)                  ? " hex:0a0b"
                : type.kind == hal::Type::Kind::STRING ? " abc"
                                                       : " 1";
    }
    const hal::Method& answer = api::answerTo(method);
    return text + "\n\nAnswer\n    serial, error (0 success)\n" +
           describeFields(answer.args + 1, answer.argCount - 1, "    ");
}

std::string completion(const CLI::App& app, bool zsh) {
    const auto name = [](const auto& thing) { return thing.get_name() + ' '; };
    std::string script = std::string(COMPLETION) + (zsh ? COMPLETE_IN_ZSH : COMPLETE_IN_BASH);
    replace(script, "@VALUED@", all(optionsOf(app), [](const CLI::Option& option) {
                                    return option.get_expected_min() > 0 ? option.get_name() + " | "
                                                                         : "";
                                }) + "-");
    replace(script, "@OPTIONS@", all(optionsOf(app), name));
    replace(script, "@COMMANDS@", all(commandsOf(app), name));
    replace(script, "@FAKE_COMMANDS@", words::COMMANDS);
    replace(script, "@FAKE_SERVICES@", words::SERVICES);
    replace(script, "@FAKE_FUNCTIONS@", words::FUNCTIONS);
    replace(script, "@METHODS@", all(api::callable(), [](const hal::Method& method) {
                return method.name + std::string(" ");
            }));
    return script;
}

std::string manPage(const CLI::App& app) {
    const auto entry = [](const auto& thing) {
        return paragraph(thing.get_name(), thing.get_description());
    };
    std::string page = MAN_PAGE;
    replace(page, "@COMMANDS@", all(commandsOf(app), entry));
    replace(page, "@OPTIONS@", all(optionsOf(app), entry));
    replace(page, "@METHODS@", all(api::callable(), describeAtLength));
    return page;
}

}  // namespace documents
