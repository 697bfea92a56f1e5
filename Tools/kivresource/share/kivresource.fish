# Completion of kivresource for fish.

set -l commands load update revalidate watch list audit clean trim serve session gallery
set -l none "not __fish_seen_subcommand_from $commands"

complete -c kivresource -f
complete -c kivresource -n $none -a load -d 'load what a configuration names'
complete -c kivresource -n $none -a update -d 'load, and drop what the configuration does not name'
complete -c kivresource -n $none -a revalidate -d 'fetch stored files that have changed on the server'
complete -c kivresource -n $none -a watch -d 'keep up to date with a configuration on a server'
complete -c kivresource -n $none -a list -d 'show what is loaded, with local paths'
complete -c kivresource -n $none -a audit -d 'show what is missing, orphaned or temporary'
complete -c kivresource -n $none -a clean -d 'remove files that no loaded resource uses'
complete -c kivresource -n $none -a trim -d 'remove files until the cache takes no more than a size'
complete -c kivresource -n $none -a serve -d 'serve a directory on the loopback interface'
complete -c kivresource -n $none -a session -d 'read calls as JSON lines'
complete -c kivresource -n $none -a gallery -d 'write a page that shows every loaded resource'

complete -c kivresource -l root -x -a '(__fish_complete_directories)' -d 'the storage root'
complete -c kivresource -l main -x -d 'the main server'
complete -c kivresource -l reserve -x -d 'the reserve server'
complete -c kivresource -l resources -x -a '(__fish_complete_directories)' -d 'holds InnerAdResources.bundle'
complete -c kivresource -l json -d 'print JSON, one object a line'
complete -c kivresource -s h -l help -d 'show help'
complete -c kivresource -n $none -l version -d 'show the version'

complete -c kivresource -n '__fish_seen_subcommand_from load update gallery' -F
complete -c kivresource -n '__fish_seen_subcommand_from load revalidate list' -l id -x -d 'only this identifier'
complete -c kivresource -n '__fish_seen_subcommand_from load revalidate list' -l type -x -d 'only this type'
complete -c kivresource -n '__fish_seen_subcommand_from load update revalidate watch' -l headers -r -F -d 'a file with headers for the servers'
complete -c kivresource -n '__fish_seen_subcommand_from load update' -l verbose -d 'also show each failed try'
complete -c kivresource -n '__fish_seen_subcommand_from watch' -l mirror -x -d 'another URL of the configuration'
complete -c kivresource -n '__fish_seen_subcommand_from watch' -l interval -x -d 'seconds between two checks'
complete -c kivresource -n '__fish_seen_subcommand_from clean trim' -l dry-run -d 'only show what would be removed'
complete -c kivresource -n '__fish_seen_subcommand_from trim' -l loaded -x -a 'oldest least-shown' -d 'remove loaded resources too'
complete -c kivresource -n '__fish_seen_subcommand_from serve' -x -a '(__fish_complete_directories)'
complete -c kivresource -n '__fish_seen_subcommand_from serve' -l port -x -d 'the port'
complete -c kivresource -n '__fish_seen_subcommand_from serve' -l fault -x -d 'PATH=STATUS or PATH=break'
complete -c kivresource -n '__fish_seen_subcommand_from serve' -l quiet -d 'Print the address alone'
