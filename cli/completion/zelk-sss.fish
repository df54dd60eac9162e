# Completion of the command zelk-sss for fish. Commands, options and their choices are read from the
# command's own --help, methods and their parameters from `zelk-sss methods`.

# Files whose names have one of the endings, and folders on the way to them; without an ending, all files.
function __zelk_sss_files --argument-names current
    set -l endings (string join '|' -- $argv[2..-1])
    set -l files (__fish_complete_path $current | string replace -r '\t.*' '')
    if test -n "$endings"
        string match -re "/\$|\.(?:$endings)\$" -- $files
    else
        printf '%s\n' $files
    end
end

# The value of an option: its name, what --help says that it takes, the method so far, what was typed of the
# value, and the sub-command.
function __zelk_sss_value --argument-names option takes method current route
    switch "$route $option"
        case '* --method'
            $__zelk_sss_command methods 2>/dev/null | string match -r '^[A-Z]+'
        case '* --param'
            $__zelk_sss_command methods 2>/dev/null |
                awk -v method=$method '/^[A-Z]/ {on = $1 == method} on && /^ / {print $1 "="}'
        case '* --tf' '* --responses'
            __zelk_sss_files $current sofa
        case '* --sources'
            __zelk_sss_files $current json csv rttm
        case '* --microphones'
            __zelk_sss_files $current json
        case '* --array'
            $__zelk_sss_command arrays 2>/dev/null | string replace -r ' .*' ''
        case 'separate -o' 'separate --output'
            __zelk_sss_files $current | string match -r '.*/$'
        case 'report -o' 'report --output' 'separate --report'
            __zelk_sss_files $current html
        case 'mix -o' 'mix --output'
            __zelk_sss_files $current wav
        case '* --title' '* --band' '* --duration'
        case '* --dry' '* --reference' '* --estimate' '* --mixture' '* --noise-recording' '* --tracks' '* -o' '* --output'
            __zelk_sss_files $current
        case '*'
            if string match -q '*{*}*' -- $takes
                string replace -r '.*?\{(.*?)\}.*' '$1' -- $takes | string split ,
            else if string match -q 'BOOLEAN*' -- $takes
                printf '%s\n' true false
            end
    end
end

# An argument that belongs to no option.
function __zelk_sss_argument --argument-names current count route
    switch "$route"
        case '' tfdb
            printf '%s\n' $__zelk_sss_help | sed -n '/^Subcommands:/,$ s/^  \([a-z]*\)  *\(.*\)/\1\t\2/p'
        case mix evaluate scene
            __zelk_sss_files $current json
        case arrays
            test $count -gt 0; or $__zelk_sss_command arrays 2>/dev/null | string replace -r ' .*' ''
        case corpus
            test $count -gt 0; and __zelk_sss_files $current; or printf '%s\n' mix score separate
        case 'tfdb *'
            __zelk_sss_files $current sofa
        case run
            test $count -gt 0; and __zelk_sss_files $current; or __zelk_sss_files $current n
        case live methods score
        case '*'
            __zelk_sss_files $current
    end
end

function __zelk_sss_offers
    set -l line (commandline -opc)
    set -g __zelk_sss_command (string replace -r '^~/' "$HOME/" -- $line[1])
    set -e line[1]
    set -l current (commandline -ct)
    set -l prefix ''
    # --option=value counts as two words.
    set -l words
    for word in $line
        set -a words (string match -q -- '--*=*' $word; and string split -m 1 = -- $word; or echo -- $word)
    end
    if string match -q -- '--*=*' $current
        set prefix (string replace -r '=.*' '=' -- $current)
        set -a words (string trim -rc = -- $prefix)
        set current (string replace -r '^[^=]*=' '' -- $current)
    end

    # The sub-command, the last option before the word, the method.
    set -l route
    set -l option
    set -l method NULL
    set -l count 0
    set -l before
    for word in $words
        if string match -q -- '-*' $word
            set option $word
        else if test (count $route) -eq 0; or test "$route" = tfdb
            set -a route $word
        else
            set count (math $count + 1)
        end
        test "$before" = --method; and set method $word
        set before $word
    end

    # What goes through corpora needs the Python package to tell of its options.
    set -g __zelk_sss_help ($__zelk_sss_command $route --help 2>/dev/null); or test "$route" = corpus; or return
    set -l takes ''
    if test -n "$option"
        set takes (printf '%s\n' $__zelk_sss_help |
            string replace -rf -- "^ +(?:-[a-z],)?$option(?:,--[a-z0-9-]+)? ([^ ]+(?: \.\.\.)?).*" '$1')
    end
    if test -n "$takes"; and test "$before" = "$option"
        __zelk_sss_value $option "$takes" $method "$current" "$route" | string replace -r '^' -- $prefix
    else if string match -q -- '-*' $current
        printf '%s\n' $__zelk_sss_help |
            string replace -rf -- '^ +(?:-[a-z],)?(--[a-z0-9-]+)(?:.*?  +(.*)|.*)$' '$1\t$2'
    else if string match -q '* ...' -- $takes
        __zelk_sss_value $option "$takes" $method "$current" "$route"
    else
        __zelk_sss_argument "$current" $count "$route"
    end
end

complete -c zelk-sss -f -a '(__zelk_sss_offers)'
