# Completion for bash: source this file, or put it where your distribution keeps completions. The options are those that
# the tool itself prints.
_quillmarch_rehearse() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    compopt -o filenames 2>/dev/null
    case $before in
    --ini | --compare) mapfile -t COMPREPLY < <(compgen -f -X '!*.[iI][nN][iI]' -- "$word"; compgen -d -- "$word") ;;
    --rules) # a configuration that is kept in the registry is an export
        mapfile -t COMPREPLY < <(compgen -f -X '!*.[iI][nN][iI]' -- "$word"; compgen -f -X '!*.[rR][eE][gG]' -- "$word"; compgen -d -- "$word") ;;
    --json | --log | --html) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    --fleet | --out | --pictures) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
    --language) mapfile -t COMPREPLY < <(compgen -W "en de" -- "$word") ;;
    --log-level) mapfile -t COMPREPLY < <(compgen -W "1 2 3 4 5 6" -- "$word") ;;
    --story) # after a comma the next one
        local named=${word%"${word##*,}"}
        mapfile -t COMPREPLY < <(compgen -P "$named" -W "boot replug sockets storm sleep newcomer all none" -- "${word##*,}") ;;
    --seed | --until | --jobs | -j | --time-limit | --shard) COMPREPLY=() ;;
    *)
        if [[ $word == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" --help 2>/dev/null | grep -oE -- '--[a-z-]+' | sort -u)" -- "$word")
        else
            mapfile -t COMPREPLY < <(compgen -f -X '!*.[tT][oO][mM][lL]' -- "$word"; compgen -f -X '!*.[rR][eE][gG]' -- "$word"; compgen -d -- "$word")
        fi
        ;;
    esac
}
complete -F _quillmarch_rehearse quillmarch-rehearse
