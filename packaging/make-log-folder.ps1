# Creates C:\ProgramData\HalvaneRelayKit and its folder log, which only administrators and SYSTEM can write to. Run it
# elevated or as SYSTEM, by Windows PowerShell 5.1: .NET (Core), and so PowerShell 7, lacks the CreateDirectory() below.
#
# Every user may create files in a folder that inherits its rights from C:\ProgramData, including a link to another
# file, which the next elevated run would empty. Existing folders stay as they are if they are safe. An unsafe one is moved
# aside, with the files in it, which nobody should use.
#
# Prints nothing on success. Otherwise it prints an error, and the exit code is 1.
$ErrorActionPreference = 'Stop'
$data = "$env:ProgramData\HalvaneRelayKit"
$log = "$data\log"
$type = [Security.Principal.SecurityIdentifier]

# Returns whether nobody but SYSTEM and administrators owns the folder or has rights to it, and it is no link. A folder
# that cannot be examined is not safe.
function Test-Folder($path) {
    try { $acl = Get-Acl -LiteralPath $path } catch { return $false }
    $sids = @($acl.GetOwner($type)) + @($acl.GetAccessRules($true, $true, $type) | ForEach-Object IdentityReference)
    $others = @($sids | Where-Object { $_.Value -notin 'S-1-5-18', 'S-1-5-32-544' })
    $link = (Get-Item -LiteralPath $path -Force).Attributes -band [IO.FileAttributes]::ReparsePoint
    return $others.Count -eq 0 -and -not $link
}

foreach ($path in $data, $log) {
    if ((Test-Path -LiteralPath $path) -and -not (Test-Folder $path)) {
        [IO.Directory]::Move($path, "$path.untrusted-" + [Guid]::NewGuid())
    }
}
# A new folder gets its owner and rights in the moment in which it is created.
$security = New-Object Security.AccessControl.DirectorySecurity
$security.SetSecurityDescriptorSddlForm('O:BAG:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)')
[void][IO.Directory]::CreateDirectory($log, $security)
foreach ($path in $data, $log) {
    if (-not (Test-Folder $path)) { throw "$path is not safe" }
}
