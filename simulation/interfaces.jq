# The interfaces of a machine file in the order of their ids, a line for each: name, id, state.
.interfaces // [] | sort_by(.id)[] | "\(.name // "")  \(.id // "")  " + if .hidden then "hidden"
    elif .hasDriver == false then "without driver" elif .enabled == false then "disabled" else "enabled" end
