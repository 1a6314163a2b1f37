# Folds a product's log so that it can be read beside what it must say: an operation and its outcomes (the records after
# it that begin with a blank, of the same moment, thread and level) stand on one line, so do the rows of one list and a
# run of equal records, without the times of the further ones; the stamp of the build and addresses in the product are
# left out.
{
    sub(/\r$/, "")
    sub(/ build [0-9-]+ [0-9:]+$/, " build STAMP")
    if ($0 ~ /CreateCallbackTimer\(/)
        sub(/0x[0-9A-F]+\)$/, "PROC)") # an address in the product
    head = substr($0, 1, index($0, "> ") + 1)
    text = substr($0, length(head) + 1)
    place = substr(head, 1, 10) substr(head, 19) # without the delta
    # What a row of a list begins with: `P[0]`, `ddn0=`, `session(0)`, `EventLog=`.
    list = match(text, /^(BalloonTips: )?[A-Za-z]+/) ? substr(text, 1, RLENGTH) : ""
    list = substr(text, RLENGTH + 1) ~ /^[[(]?[0-9]+[])=]/ ? list : text ~ /^(BalloonTips: )?[A-Za-z]+=[^ ]*$/ ? "=" : ""
    if (text == last && text !~ /^ /) {
        times++
        next
    }
    if (times) {
        line = line " [" times " more]"
        times = 0
    }
    isSame = head ~ /\(   0\)/ && place == lastPlace
    if (isSame && (text ~ /^ / || (list != "" && list == lastList)))
        line = line " |" (text ~ /^ / ? "" : " ") text
    else {
        if (NR > 1)
            print line
        line = $0
    }
    last = text
    lastPlace = place
    lastList = list
}
END { print line (times ? " [" times " more]" : "") }
