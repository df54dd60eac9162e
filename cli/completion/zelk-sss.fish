# Completion of the command zelk-sss for fish. Commands, options and their choices are read from the
# command's own --help, methods from `zelk-sss methods`.

# The command and its sub-command of the line so far.
function __zelk_sss_route
    set -l route
    for word in (commandline -opc)[2..-1]
        string match -q -- '-*' $word; and continue
        test (count $route) -eq 0; or test "$route" = tfdb; and set -a route $word
    end
    printf '%s\n' $route
end

function __zelk_sss_help
    command zelk-sss (__zelk_sss_route) --help 2>/dev/null
end

# What may follow: an option's choices, options with what they mean, or sub-commands.
function __zelk_sss_offers
    set -l before (commandline -opc)[-1]
    set -l help (__zelk_sss_help)
    if test "$before" = --method
        command zelk-sss methods 2>/dev/null | string match -r '^[A-Z]+'
        return
    end
    if string match -q -- '-*' $before
        set -l takes (printf '%s\n' $help | string replace -rf -- "^ +(-[a-z],)?$before ([^ ]+).*" '$2')
        if string match -q '*{*}*' -- "$takes"
            string replace -r '.*\{(.*)\}.*' '$1' -- "$takes" | string split ,
            return
        end
    end
    printf '%s\n' $help | string replace -rf '^ +(?:-[a-z],)?(--[a-z0-9-]+).*' '$1'
    set -l route (__zelk_sss_route)
    if test (count $route) -eq 0; or test "$route" = tfdb
        printf '%s\n' $help | string match -re '^  [a-z]+ ' | string replace -r '^  ([a-z]+) +(.*)' '$1\t$2'
    end
end

# Words of the command itself come before files.
complete -c zelk-sss -n 'test (count (__zelk_sss_route)) -eq 0' -f
complete -c zelk-sss -a '(__zelk_sss_offers)'
