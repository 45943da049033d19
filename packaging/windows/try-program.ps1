# Starts a Quendel.exe on a Windows without interfaces, as a user would: it says that there are none, and ends in order when
# that is closed. Fails if it does not, or if anything that it loads lies above 2 GiB: try-program.ps1 FILE
param ([Parameter (Mandatory)] [string] $program)

$ErrorActionPreference = 'Stop'
$process = Start-Process -FilePath $program -PassThru
$null = $process.Handle # without it the exit code is lost

while ($process.MainWindowTitle -ne 'Quendel') {
    if ($process.HasExited) { throw "$program ended by itself with $($process.ExitCode)" }
    Start-Sleep -Milliseconds 100
    $process.Refresh()
}

# A 32-bit program's own modules lie there anyway; above are those of the system's 64-bit part.
$above = $process.Modules | Where-Object { [long] $_.BaseAddress -ge 2GB -and $_.ModuleName -notmatch '^wow64' }
$is32Bit = $process.Modules.ModuleName -contains 'wow64.dll'

if ($is32Bit) { $above = $above | Where-Object ModuleName -ne 'ntdll.dll' }
if ($above) { throw "$program has above 2 GiB: $($above.ModuleName)" }

Add-Type -AssemblyName UIAutomationClient
$box = [Windows.Automation.AutomationElement]::FromHandle($process.MainWindowHandle)
$texts = $box.FindAll('Descendants', [Windows.Automation.Condition]::TrueCondition).Current.Name

if (-not ($texts -match 'No compatible hardware detected\.')) { throw "$program says: $texts" }

$null = $process.CloseMainWindow()
$process.WaitForExit()

if ($process.ExitCode -ne 0) { throw "$program ended with $($process.ExitCode)" }

"$program started, said what it had to say, and ended"
