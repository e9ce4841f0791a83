#include "Help.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Api.h"
#include "ModemFunctions.h"
#include "Values.h"

namespace help {

namespace {

using nlohmann::ordered_json;

constexpr char COMPLETION[] = R"(# Completion of modemctl: . <(modemctl completion bash), or zsh
_modemctl() {
    # bashcompinit gives "--" for an empty word.
    [ -z "${ZSH_VERSION:-}" ] || { emulate -L ksh; set -- "$1" "${COMP_WORDS[COMP_CWORD]}"; }
    local word=${2-${COMP_WORDS[COMP_CWORD]}} command= given=0 i choices= file form=%s
    local ask="modemctl --timeout 1"
    if [[ $word == @* ]]; then  # a file; behind @" bash does it by itself
        case ${COMP_WORDS[COMP_CWORD]} in
            [\"\']*) ;;
            *) form=%q; IFS= read word <<<"$word" ;;  # without its backslashes
        esac
        COMPREPLY=()
        for file in "${word#@}"*; do
            [ -e "$file" ] || continue
            [ ! -d "$file" ] || file=$file/
            printf -v file "@$form" "$file"
            COMPREPLY+=("$file")
        done
        [[ ${COMPREPLY-} != */ ]] || compopt -o nospace
        return
    fi
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --timeout|--serial|--wait|--out|--count) ((i++)) ;;
            --instance) ask+=" --instance ${COMP_WORDS[++i]}" ;;
            -*) ;;
            *) command=${command:-${COMP_WORDS[i]}} given=$((given + 1)) ;;
        esac
    done
    case $((i > COMP_CWORD)):$given:$command:$word in
        0:*:-*) choices=$(modemctl $command --help | grep -oE -- '--[a-z-]+'; echo "--json --timeout --instance") ;;
        0:0:*) choices=$(modemctl --help | sed -nE '/^Subcommands/,$s/^  ([a-z]+) .*/\1/p') ;;
        0:1:call:*|0:1:show:*) choices=$(modemctl list | sed '/^ /d; s/ .*//') ;;
        0:1:completion:*) choices='bash zsh' ;;
        0:1:fake:*) choices=$($ask fake help | sed -n 's/^\([a-z-]*\) .*/\1/p') ;;
        0:2:fake:*) case ${COMP_WORDS[COMP_CWORD-1]} in
            connect|disconnect) choices="$($ask fake state service. | sed -nE 's/^service.([a-z]+) .*/\1/p') all" ;;
            fail|delay|silence|patch|ok|calls) choices=$($ask fake calls | sed '/^ok$/d; s/ .*//') ;;
            set|state) choices=$($ask fake state | sed '/^ok$/d; s/ .*//') ;;
            esac ;;
        0:3:fake:*) [[ ${COMP_WORDS[COMP_CWORD-2]} != patch ]] || choices='length result size token' ;;
    esac 2>/dev/null
    COMPREPLY=($(compgen -W "$choices" -- "$word"))
}
)";

constexpr char COMPLETE_IN_BASH[] = "complete -o default -F _modemctl modemctl\n";

constexpr char COMPLETE_IN_ZSH[] = R"(autoload -U +X bashcompinit && bashcompinit
_modemctl_or_file() {
    if compset -P @; then _files; else _bash_complete -o default -F _modemctl; fi
}
compdef _modemctl_or_file modemctl
)";

void replace(std::string& text, const std::string& mark, const std::string& by) {
    for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += by.size()) {
        text.replace(at, mark.size(), by);
    }
}

std::string signature(const hal::Method& method) {
    const std::string arguments = api::arguments(method);
    return method.name + (arguments.empty() ? "" : ' ' + arguments);
}

const auto& functionOf(const hal::Method& method) {
    return *std::find_if(std::begin(MODEM_FUNCTIONS), std::end(MODEM_FUNCTIONS),
                         [&](const auto& row) { return row.method == std::string(method.name); });
}

/** The comment on one line. */
std::string commentOf(const hal::Method& method) {
    std::string comment = method.doc;
    replace(comment, "\n", " ");
    return comment;
}

std::string exampleOf(const hal::Method& method) {
    std::string text = "modemctl call " + std::string(method.name);
    for (size_t i = 1; i < method.argCount; ++i) {
        const hal::Type& type = *method.args[i].type;
        text += values::isBytes(type)                  ? " hex:0a0b"
                : type.kind == hal::Type::Kind::STRING ? " abc"
                                                       : " 1";
    }
    return text;
}

ordered_json describeFields(const hal::Field* fields, size_t count) {
    ordered_json list = ordered_json::array();
    for (const hal::Field* field = fields; field != fields + count; ++field) {
        list.push_back({{"name", field->name}, {"type", field->type->name}, {"doc", field->doc}});
        if (field->type->fieldCount > 0) {
            list.back()["fields"] = describeFields(field->type->fields, field->type->fieldCount);
        }
    }
    return list;
}

ordered_json describe(const hal::Method& method) {
    const hal::Method& answer = api::answerTo(method);
    const auto& row = functionOf(method);
    return {{"method", method.name},
            {"service", row.service},
            {"function", row.function},
            {"doc", commentOf(method)},
            {"arguments", describeFields(method.args + 1, method.argCount - 1)},
            {"answer", describeFields(answer.args + 1, answer.argCount - 1)},
            {"example", exampleOf(method)}};
}

/** A line for each field, and below those of structs their members. */
std::string linesOf(const ordered_json& fields, const std::string& indent) {
    std::string text;
    for (const ordered_json& field : fields) {
        const std::string doc = field["doc"];
        text += indent + field["name"].get<std::string>() + " (" +
                field["type"].get<std::string>() + ')' + (doc.empty() ? "" : ": " + doc) + '\n' +
                linesOf(field.value("fields", ordered_json::array()), indent + "    ");
    }
    return text;
}

}  // namespace

std::string list(bool json) {
    std::string lines;
    for (const hal::Method* method : api::callable()) {
        if (json) {
            lines += describe(*method).dump() + '\n';
            continue;
        }
        const auto& [name, service, function] = functionOf(*method);
        const std::string doc = commentOf(*method) + ' ';
        std::string row = std::string("    ") + service;
        row.resize(9, ' ');
        row += *function == '\0' ? "-" : function;
        row.resize(49, ' ');
        lines += signature(*method) + '\n' + row + doc.substr(0, doc.find(". ") + 1) + '\n';
    }
    return lines;
}

std::string show(const hal::Method& method, bool json) {
    const ordered_json description = describe(method);
    if (json) {
        return description.dump() + '\n';
    }
    std::string comment = method.doc;
    replace(comment, "\n", "\n    ");
    const auto& row = functionOf(method);
    return signature(method) + "\n    " + comment + '\n' +
           linesOf(description["arguments"], "    ") + "\nModem\n    " + row.service + ' ' +
           row.function + "\n\nExample\n    " + exampleOf(method) +
           "\n\nAnswer\n    serial, error (0 success)\n" + linesOf(description["answer"], "    ");
}

std::string completion(bool zsh) {
    return std::string(COMPLETION) + (zsh ? COMPLETE_IN_ZSH : COMPLETE_IN_BASH);
}

}  // namespace help
