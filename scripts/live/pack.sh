# Sourced: driver packages of made-up makers, one for each controller of the live test.

# service_of DISK: the driver's name, and that of its service: "lvmegaraidbridge".
service_of() { echo "lv${1//-/}"; }

# pack_id ID: the id by which a package is for the controller: "PCI\VEN_1000&DEV_0060".
pack_id() { echo "${1%%&SUBSYS_*}"; }

# add_package PACK DISK CLASS ID
add_package() {
  local folder=$1/$2 service guid={4D36E97B-E325-11CE-BFC1-08002BE10318}
  service=$(service_of "$2")
  [[ $3 != hdc ]] || guid={4D36E96A-E325-11CE-BFC1-08002BE10318}
  mkdir -p "$folder"
  tests/support/make_driver.sh --signed "$folder/$service.sys" 21.4.0.7 "Made-up driver behind $2" 'Made Up'
  cp examples/raid-10.0-x64/ram/drivers/hba/twhba.cat "$folder/$service.cat"
  sed 's/$/\r/' >"$folder/$service.inf" <<INF
[Version]
Signature   = "\$Windows NT\$"
Class       = $3
ClassGuid   = $guid
Provider    = %Maker%
DriverVer   = 04/07/2021,21.4.0.7
CatalogFile = $service.cat

[Manufacturer]
%Maker% = Models,NTamd64

[Models.NTamd64]
%Device% = Install, $(pack_id "$4")

[SourceDisksNames]
1 = "Disk",,,

[SourceDisksFiles]
$service.sys = 1

[DestinationDirs]
DefaultDestDir = 12

[Install]
CopyFiles = @$service.sys

[Install.Services]
AddService = $service, 2, Service

[Service]
ServiceType    = 1
StartType      = 0
ErrorControl   = 1
ServiceBinary  = %12%\\$service.sys
LoadOrderGroup = SCSI Miniport

[Strings]
Maker  = "Made Up"
Device = "Made-up controller of $2"
INF
}
