// The sample PAC script of the main job: intranet names go direct, plain
// names are left to the browser's own settings, everything else goes
// through the corporate proxy with a direct fall-back.
function FindProxyForURL(url, host) {
    if (isPlainHostname(host))
        return "";
    if (dnsDomainIs(host, ".intranet.example") || shExpMatch(host, "10.*"))
        return "DIRECT";
    return "PROXY proxy.corp.example:3128; DIRECT";
}
