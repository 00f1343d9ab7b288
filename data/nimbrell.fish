# fish completion for nimbrell
set -l commands status sync cancel list remotes folders pause resume open quit review share file-status
set -l switches exclude-git no-exclude-git exclude-hidden no-exclude-hidden exclude-node-modules no-exclude-node-modules keep-removed no-keep-removed

complete -c nimbrell -f
complete -c nimbrell -n "not __fish_seen_subcommand_from $commands" -a "$commands"
complete -c nimbrell -n "not __fish_seen_subcommand_from $commands" -l headless -d "Run without a window"
complete -c nimbrell -l help -d "Show the help"
complete -c nimbrell -n "not __fish_seen_subcommand_from $commands" -l version -d "Show the version"

complete -c nimbrell -n "__fish_seen_subcommand_from status sync cancel open pause resume review" -a "(nimbrell --complete folders 2>/dev/null)"
complete -c nimbrell -n "__fish_seen_subcommand_from review" -l apply -l json
complete -c nimbrell -n "__fish_seen_subcommand_from share file-status" -F
complete -c nimbrell -n "__fish_seen_subcommand_from file-status" -l json
complete -c nimbrell -n "__fish_seen_subcommand_from share" -l expire -x
complete -c nimbrell -n "__fish_seen_subcommand_from share" -l json
complete -c nimbrell -n "__fish_seen_subcommand_from status list" -l json
complete -c nimbrell -n "__fish_seen_subcommand_from sync cancel" -l all
complete -c nimbrell -n "__fish_seen_subcommand_from sync" -l wait
complete -c nimbrell -n "__fish_seen_subcommand_from open" -l removed -d "At the folder's Recently Removed"

complete -c nimbrell -n "__fish_seen_subcommand_from remotes; and not __fish_seen_subcommand_from add test remove types" -a "add test remove types"
complete -c nimbrell -n "__fish_seen_subcommand_from remotes; and __fish_seen_subcommand_from add" -a "(nimbrell --complete types 2>/dev/null)"
complete -c nimbrell -n "__fish_seen_subcommand_from remotes; and __fish_seen_subcommand_from add" -l keep -l interactive
complete -c nimbrell -n "__fish_seen_subcommand_from remotes; and __fish_seen_subcommand_from test remove" -a "(nimbrell --complete remotes 2>/dev/null)"
complete -c nimbrell -n "__fish_seen_subcommand_from remotes; and __fish_seen_subcommand_from remove" -l force
complete -c nimbrell -n "__fish_seen_subcommand_from remotes folders" -l json

complete -c nimbrell -n "__fish_seen_subcommand_from folders; and not __fish_seen_subcommand_from add edit remove list" -a "add edit remove list"
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit remove" -a "(nimbrell --complete folders 2>/dev/null)"
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from add" -a "(nimbrell --complete remotes 2>/dev/null | string replace -r '\$' ':')"
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from add edit" -l conflict -x -a "keepBoth newerWins localWins remoteWins"
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from add edit" -l $switches
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l add-target -x -a "(nimbrell --complete remotes 2>/dev/null | string replace -r '\$' ':')"
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l remove-target -x
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l rename -x
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l skip -x
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l unskip -x
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l ignore -x
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l unignore -x
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l direction -x -a "two-way upload download"
complete -c nimbrell -n "__fish_seen_subcommand_from folders; and __fish_seen_subcommand_from edit" -l local-path -r -a "(__fish_complete_directories)"
