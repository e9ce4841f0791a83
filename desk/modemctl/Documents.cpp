#include "Documents.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Api.h"
#include "Values.h"

namespace documents {

namespace {

using nlohmann::ordered_json;

constexpr char COMPLETION[] = R"(# Completion of modemctl: . <(modemctl completion bash), or zsh
_modemctl() {
    [ -z "${ZSH_VERSION:-}" ] || emulate -L ksh
    local word=${2-${COMP_WORDS[COMP_CWORD]}} command= given=0 i words= path form=%s
    local ask="modemctl --timeout 1"
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
            --timeout|--serial|--wait|--out|--count) ((i++)) ;;
            --instance) ask+=" --instance ${COMP_WORDS[++i]}" ;;
            -*) ;;
            *) command=${command:-${COMP_WORDS[i]}} given=$((given + 1)) ;;
        esac
    done
    case $((i > COMP_CWORD)):$given:$command:$word in
        0:*:-*) words=$(modemctl $command --help | grep -oE -- '--[a-z-]+'; echo "--json --timeout --instance") ;;
        0:0:*) words=$(modemctl --help | sed -nE '/^Subcommands/,$s/^  ([a-z]+) .*/\1/p') ;;
        0:1:call:*|0:1:show:*) words=$(modemctl list | sed 's/ .*//') ;;
        0:1:completion:*) words='bash zsh' ;;
        0:1:fake:*) words=$($ask fake help | sed -n 's/^\([a-z-]*\) .*/\1/p') ;;
        0:2:fake:*) case ${COMP_WORDS[COMP_CWORD-1]} in
            connect|disconnect) words="$($ask fake state service. | sed -nE 's/^service.([a-z]+) .*/\1/p') all" ;;
            fail|delay|silence|patch|ok|calls) words=$($ask fake calls | sed '/^ok$/d; s/ .*//') ;;
            set|state) words=$($ask fake state | sed '/^ok$/d; s/ .*//') ;;
            esac ;;
    esac 2>/dev/null
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

void replace(std::string& text, const std::string& mark, const std::string& by) {
    for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += by.size()) {
        text.replace(at, mark.size(), by);
    }
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

std::string list(bool json) {
    size_t width = 0;
    for (const hal::Method* method : api::callable()) {
        width = std::max(width, signature(*method).size());
    }
    std::string lines;
    for (const hal::Method* method : api::callable()) {
        std::string comment = method->doc;
        replace(comment, "\n", " ");
        std::string text = signature(*method);
        text.resize(width, ' ');
        text += "  " + comment.substr(0, comment.find(". ")) + '\n';
        lines += json ? describe(*method) : text;
    }
    return lines;
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

std::string completion(bool zsh) {
    return std::string(COMPLETION) + (zsh ? COMPLETE_IN_ZSH : COMPLETE_IN_BASH);
}

}  // namespace documents
