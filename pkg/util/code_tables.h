#ifndef KUTIL_UTIL_CODE_TABLES_H
#define KUTIL_UTIL_CODE_TABLES_H

/* code_tables.h: one word table per enumeration of the configuration.
 *
 * The configuration stores enumerations as words; code2str_ex and str2code_ex of code2str.h turn codes into
 * words and back with the table of the enumeration. Enumeration fw_level_t has the constants ZEL_FW_LEVEL_...
 * and the table fw_level_t_str, and so on for all of them. Each enumeration also has ZEL_..._NO_CODE, which
 * is -1 and what a failed look-up of a word answers; it makes the enumeration signed.
 *
 * The rows are in code_tables.def beside this header: the default schema, which is this library's own. A
 * library built with another schema (its file name and soname say which) has its own code_tables.def
 * installed here, and programs that use the constants are built against that one.
 *
 * The tables are constant data. Each is a weak definition: a program may define a table of the same name and
 * is then served by its own rows. A program that links the static library holds only the tables that it
 * names, unless it uses code_names_find, which names all. */

#include "code2str.h"

KUTIL_BEGIN_DECLS

/* The enumerations. KUTIL_CODE_TABLES names another file while a library with its own schema is built. */
#ifndef KUTIL_CODE_TABLES
#define KUTIL_CODE_TABLES "code_tables.def"
#endif
#pragma push_macro("SCHEMA")
#pragma push_macro("TABLE")
#pragma push_macro("ROW")
#pragma push_macro("HIDDEN_ROW")
#undef SCHEMA
#undef TABLE
#undef ROW
#undef HIDDEN_ROW
#define SCHEMA(name)
#define TABLE(type, table, no_code, ...) typedef enum type { __VA_ARGS__ no_code = -1 } type;
#define ROW(constant, code, ...) constant = code,
#define HIDDEN_ROW(constant, code, ...) constant = code,
#include KUTIL_CODE_TABLES
#undef SCHEMA
#undef TABLE
#undef ROW
#undef HIDDEN_ROW
#pragma pop_macro("SCHEMA")
#pragma pop_macro("TABLE")
#pragma pop_macro("ROW")
#pragma pop_macro("HIDDEN_ROW")

/* code_names_find returns the table with the given name, for example "fw_level_t_str", or NULL when the
 * schema has none (also for NULL). It is for tools that get the name at run time. */
KUTIL_API const code_names *code_names_find(const char *name);

/* The tables, in the order of code_tables.def, where each has its comment. */

/* Wireless security keys, firewall level, sign-on and mail. */
KUTIL_API extern const code_names wpa_psk_param_t_str[];
KUTIL_API extern const code_names wep_type_t_str[];
KUTIL_API extern const code_names fw_level_t_str[];
KUTIL_API extern const code_names eap_method_id_t_str[];
KUTIL_API extern const code_names email_conf_type_t_str[];
KUTIL_API extern const code_names tod_proto_t_str[];

/* IPsec. */
KUTIL_API extern const code_names ipsec_trans_type_t_str[];
KUTIL_API extern const code_names ipsec_protect_proto_t_str[];
KUTIL_API extern const code_names ipsec_protect_port_type_t_str[];
KUTIL_API extern const code_names ipsec_kx_type_t_str[];
KUTIL_API extern const code_names ipsec_proto_t_str[];
KUTIL_API extern const code_names ipsec_enc_type_t_str[];
KUTIL_API extern const code_names ipsec_auth_type_t_str[];
KUTIL_API extern const code_names ipsec_phase1_mode_t_str[];
KUTIL_API extern const code_names ipsec_peer_auth_type_t_str[];
KUTIL_API extern const code_names ipsec_dh_type_t_str[];

/* Firewall and address translation. */
KUTIL_API extern const code_names fw_action_t_str[];
KUTIL_API extern const code_names fw_rule_type_t_str[];
KUTIL_API extern const code_names conn_group_t_str[];
KUTIL_API extern const code_names range_selection_type_t_str[];
KUTIL_API extern const code_names fw_redirect_type_t_str[];
KUTIL_API extern const code_names wildcard_if_t_str[];
KUTIL_API extern const code_names wildcard_if_flags_t_str[];
KUTIL_API extern const code_names addr_list_dir_t_str[];
KUTIL_API extern const code_names addr_list_type_t_str[];
KUTIL_API extern const code_names fw_alg_type_t_str[];
KUTIL_API extern const code_names fw_alg_flow_type_t_str[];
KUTIL_API extern const code_names fw_pkt_match_length_t_str[];
KUTIL_API extern const code_names fw_pkt_match_conn_type_t_str[];

/* Wireless LAN. */
KUTIL_API extern const code_names dot11_mode_t_str[];
KUTIL_API extern const code_names cfg_wpa_cipher_t_str[];
KUTIL_API extern const code_names wl_wpa_protected_mgt_frames_t_str[];
KUTIL_API extern const code_names wlan_op_mode_t_str[];
KUTIL_API extern const code_names wlan_country_region_t_str[];
KUTIL_API extern const code_names wl_band_t_str[];

/* Voice lines. */
KUTIL_API extern const code_names voip_status_t_str[];
KUTIL_API extern const code_names voip_protocols_t_str[];
KUTIL_API extern const code_names trunk_group_t_str[];
KUTIL_API extern const code_names ext_voice_port_type_t_str[];
KUTIL_API extern const code_names voip_echo_cancel_level_t_str[];
KUTIL_API extern const code_names voip_echo_cancel_type_t_str[];
KUTIL_API extern const code_names voip_echo_cancel_nlp_t_str[];
KUTIL_API extern const code_names voip_ringing_waveform_t_str[];
KUTIL_API extern const code_names voip_impedance_t_str[];
KUTIL_API extern const code_names voip_jb_type_t_str[];
KUTIL_API extern const code_names voip_jb_adapt_method_t_str[];
KUTIL_API extern const code_names voip_jb_local_adapt_mode_t_str[];
KUTIL_API extern const code_names voip_dialtone_type_t_str[];
KUTIL_API extern const code_names voip_filter_type_t_str[];
KUTIL_API extern const code_names wl_wds_mode_t_str[];
KUTIL_API extern const code_names wl_wds_enc_t_str[];
KUTIL_API extern const code_names wl_access_category_t_str[];
KUTIL_API extern const code_names wl_ack_policy_t_str[];
KUTIL_API extern const code_names wl_channel_width_mode_t_str[];
KUTIL_API extern const code_names wl_mfp_mode_t_str[];

/* Voice features. */
KUTIL_API extern const code_names voip_cid_modulation_type_t_str[];
KUTIL_API extern const code_names voip_cid_transmission_type_t_str[];
KUTIL_API extern const code_names voip_cid_alert_type_t_str[];
KUTIL_API extern const code_names cfg_rtp_payload_type_t_str[];
KUTIL_API extern const code_names voip_sip_transport_prot_t_str[];
KUTIL_API extern const code_names voip_destination_type_t_str[];
KUTIL_API extern const code_names voip_dtmf_mode_t_str[];
KUTIL_API extern const code_names voip_fax_method_t_str[];
KUTIL_API extern const code_names voip_fax_detection_method_t_str[];
KUTIL_API extern const code_names voip_sip_wan_interface_selection_t_str[];
KUTIL_API extern const code_names voip_sip_compat_mode_t_str[];
KUTIL_API extern const code_names voip_pbx_action_t_str[];
KUTIL_API extern const code_names voip_pbx_extension_type_t_str[];
KUTIL_API extern const code_names voip_ring_mode_t_str[];
KUTIL_API extern const code_names voip_ring_order_t_str[];
KUTIL_API extern const code_names voip_announce_mode_t_str[];
KUTIL_API extern const code_names voip_facility_action_t_str[];
KUTIL_API extern const code_names voip_route_call_to_t_str[];
KUTIL_API extern const code_names voip_isdn_mode_t_str[];
KUTIL_API extern const code_names voip_transfer_mode_t_str[];
KUTIL_API extern const code_names voip_ringing_schedule_mode_t_str[];

/* Wireless protection, port mapping, management protocols. */
KUTIL_API extern const code_names dot11_cts_mode_t_str[];
KUTIL_API extern const code_names dot11_cts_type_t_str[];
KUTIL_API extern const code_names mapping_protocol_t_str[];
KUTIL_API extern const code_names snmp_ver_t_str[];
KUTIL_API extern const code_names dsl_line_mode_t_str[];
KUTIL_API extern const code_names dsl_annexm_mode_t_str[];
KUTIL_API extern const code_names dev_if_type_t_str[];
KUTIL_API extern const code_names atm_traffic_class_t_str[];
KUTIL_API extern const code_names virtual_wan_filter_mode_t_str[];
KUTIL_API extern const code_names generic_proxy_type_t_str[];
KUTIL_API extern const code_names generic_proxy_error_policy_t_str[];
KUTIL_API extern const code_names av_version_type_t_str[];
KUTIL_API extern const code_names ppp_comp_opt_t_str[];
KUTIL_API extern const code_names http_proxy_filter_res_t_str[];
KUTIL_API extern const code_names ch_ui_selection_t_str[];
KUTIL_API extern const code_names upnp_publish_wan_t_str[];
KUTIL_API extern const code_names radius_auth_method_t_str[];
KUTIL_API extern const code_names apn_auth_protocol_t_str[];
KUTIL_API extern const code_names roaming_mode_t_str[];
KUTIL_API extern const code_names dev_if_mtu_mode_t_str[];

/* Files, access, updates. */
KUTIL_API extern const code_names file_server_guest_access_t_str[];
KUTIL_API extern const code_names access_level_t_str[];
KUTIL_API extern const code_names access_obj_type_t_str[];
KUTIL_API extern const code_names raid_level_t_str[];
KUTIL_API extern const code_names backup_op_t_str[];
KUTIL_API extern const code_names backup_freq_t_str[];
KUTIL_API extern const code_names rmt_upd_status_t_str[];
KUTIL_API extern const code_names mgt_service_t_str[];

/* Quality of service. */
KUTIL_API extern const code_names qos_prio_t_str[];
KUTIL_API extern const code_names qos_scheduler_algorithm_t_str[];
KUTIL_API extern const code_names qos_policy_t_str[];
KUTIL_API extern const code_names qos_tcp_ser_t_str[];
KUTIL_API extern const code_names qos_queue_policy_t_str[];
KUTIL_API extern const code_names qos_profiles_t_str[];
KUTIL_API extern const code_names qos_policer_actions_t_str[];
KUTIL_API extern const code_names qos_conn_utilz_fields_t_str[];
KUTIL_API extern const code_names qos_packet_prio_t_str[];

/* Remote management and diagnostics. */
KUTIL_API extern const code_names cwmp_param_notification_t_str[];
KUTIL_API extern const code_names ping_diagnostics_state_t_str[];
KUTIL_API extern const code_names outcall_diagnostics_state_t_str[];
KUTIL_API extern const code_names acs_bootstrap_statuses_t_str[];
KUTIL_API extern const code_names setup_wizard_initiator_t_str[];
KUTIL_API extern const code_names setup_wizard_state_t_str[];
KUTIL_API extern const code_names bluetooth_security_t_str[];
KUTIL_API extern const code_names ddns_status_t_str[];
KUTIL_API extern const code_names dns_failover_mode_t_str[];
KUTIL_API extern const code_names dns_addr_provider_type_t_str[];
KUTIL_API extern const code_names mgt_srv_ssl_mode_t_str[];
KUTIL_API extern const code_names mgt_srv_ssl_server_mode_t_str[];
KUTIL_API extern const code_names ssl_vpn_app_t_str[];
KUTIL_API extern const code_names application_size_t_str[];
KUTIL_API extern const code_names ftp_list_command_t_str[];
KUTIL_API extern const code_names opt_comp_t_str[];
KUTIL_API extern const code_names time_units_t_str[];

/* Switches and ports. */
KUTIL_API extern const code_names switch_ingress_policy_t_str[];
KUTIL_API extern const code_names switch_egress_policy_t_str[];
KUTIL_API extern const code_names port_speed_t_str[];
KUTIL_API extern const code_names port_duplex_t_str[];
KUTIL_API extern const code_names hw_switch_dscp_8021p_order_t_str[];
KUTIL_API extern const code_names hw_switch_precdence_list_t_str[];
KUTIL_API extern const code_names ssl_cert_validation_mode_t_str[];
KUTIL_API extern const code_names detection_state_t_str[];
KUTIL_API extern const code_names l7_proto_t_str[];
KUTIL_API extern const code_names hw_qos_scheduler_t_str[];
KUTIL_API extern const code_names bt_max_upload_mode_t_str[];

/* Log, local network, services. */
KUTIL_API extern const code_names notify_level_t_str[];
KUTIL_API extern const code_names syslog_buf_type_t_str[];
KUTIL_API extern const code_names syslog_buf_policy_t_str[];
KUTIL_API extern const code_names bad_ip_intercept_mode_t_str[];
KUTIL_API extern const code_names dhcps_lease_history_t_str[];
KUTIL_API extern const code_names preconf_int_conn_t_str[];
KUTIL_API extern const code_names service_group_t_str[];
KUTIL_API extern const code_names wl_station_type_t_str[];
KUTIL_API extern const code_names wl_wps_state_t_str[];
KUTIL_API extern const code_names wl_wps_locked_reason_t_str[];
KUTIL_API extern const code_names wl_net_type_t_str[];
KUTIL_API extern const code_names sec_perm_type_t_str[];
KUTIL_API extern const code_names dev_route_group_t_str[];
KUTIL_API extern const code_names av_entry_type_t_str[];
KUTIL_API extern const code_names av_entry_mime_type_t_str[];
KUTIL_API extern const code_names call_type_t_str[];
KUTIL_API extern const code_names oam_ping_type_t_str[];
KUTIL_API extern const code_names voip_prack_level_type_t_str[];
KUTIL_API extern const code_names general_operation_status_t_str[];
KUTIL_API extern const code_names wan_auto_detect_type_t_str[];

/* Mobile networks. */
KUTIL_API extern const code_names zel_3gpp_sim_state_t_str[];
KUTIL_API extern const code_names gsm_allowed_mode_t_str[];
KUTIL_API extern const code_names gsm_domain_t_str[];
KUTIL_API extern const code_names gsm_oper_format_t_str[];
KUTIL_API extern const code_names gsm_oper_act_t_str[];
KUTIL_API extern const code_names mt_3g_line_type_t_str[];
KUTIL_API extern const code_names gsm_traffic_class_t_str[];
KUTIL_API extern const code_names zel_3gpp_generation_t_str[];
KUTIL_API extern const code_names voip_udptl_ec_mode_t_str[];

/* Rates, lists, discovery. */
KUTIL_API extern const code_names fw_rate_type_t_str[];
KUTIL_API extern const code_names fw_acl_type_t_str[];
KUTIL_API extern const code_names lldp_dst_addr_t_str[];
KUTIL_API extern const code_names lldp_chassis_id_subtype_t_str[];
KUTIL_API extern const code_names lldp_port_id_subtype_t_str[];
KUTIL_API extern const code_names iana_addr_family_number_t_str[];
KUTIL_API extern const code_names lldp_if_number_subtype_t_str[];
KUTIL_API extern const code_names lcd_font_size_t_str[];
KUTIL_API extern const code_names reset_reason_t_str[];
KUTIL_API extern const code_names dhcpv6_prefix_mode_t_str[];
KUTIL_API extern const code_names dhcpv6_trigger_mode_t_str[];
KUTIL_API extern const code_names upgrade_status_t_str[];
KUTIL_API extern const code_names cdc_ether_type_t_str[];
KUTIL_API extern const code_names antenna_type_t_str[];
KUTIL_API extern const code_names suffix_gen_policy_t_str[];
KUTIL_API extern const code_names voip_vc_route_t_str[];
KUTIL_API extern const code_names param_split_t_str[];

KUTIL_END_DECLS

#endif
