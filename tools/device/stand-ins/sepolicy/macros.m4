# The platform's macros that device/sepolicy uses, by their names there, cut to what the base knows.
define(`init_daemon_domain', `
allow init $1_exec:file { getattr open read execute };
allow init $1:process transition;
allow $1 $1_exec:file { getattr open read execute entrypoint };
type_transition init $1_exec:process $1;')
define(`hwbinder_use', `
allow $1 hwservicemanager:binder { call transfer };
allow $1 hwservicemanager_prop:file { getattr open read map };')
define(`binder_call', `
allow $1 $2:binder { call transfer };
allow $2 $1:binder transfer;
allow $1 $2:fd use;')
define(`add_hwservice', `
allow $1 $2:hwservice_manager { add find };
neverallow { domain -$1 } $2:hwservice_manager add;')
define(`get_prop', `
allow $1 $2:file { getattr open read map };')
define(`set_prop', `
allow $1 $2:property_service set;
allow $1 property_socket:sock_file write;')
define(`r_dir_file', `
allow $1 $2:dir { getattr open read search };
allow $1 $2:file { getattr open read map };')
