# What follows a kelnn on fish's command line, besides names of files; kelnn says it.
complete -c kelnn -a '(set -l typed (commandline -opc); $typed[1] --complete $typed[2..] (commandline -ct) 2>/dev/null)'
