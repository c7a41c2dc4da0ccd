// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "control_interface.hpp"

#include <iterator>

#include <vorn/raii.hpp>

static constexpr char introspection_xml[] = R"(
<node>
  <interface name='org.vorn.Host1'>
    <!-- Returns once the first frame is recorded: the name that the file will have. -->
    <method name='StartRecording'>
      <arg name='file' type='s' direction='out'/>
    </method>
    <!-- Returns once the file lies under its name. -->
    <method name='StopRecording'>
      <arg name='file' type='s' direction='out'/>
    </method>
    <!-- Takes count pictures of a group (single, bracketing, burst, panorama); returns once all are
         written. -->
    <method name='TakePhoto'>
      <arg name='group' type='s' direction='in'/>
      <arg name='count' type='u' direction='in'/>
      <arg name='panorama_type' type='s' direction='in'/>
      <arg name='files' type='as' direction='out'/>
    </method>
    <!-- 'recording 1920x1080@30000/1001 [SUB-MODE]' or 'photo MODE [FORMAT] [FILE-FORMAT] [COUNT]' -->
    <method name='SetMode'>
      <arg name='mode' type='s' direction='in'/>
    </method>
    <method name='SetMagicCarpet'>
      <arg name='active' type='b' direction='in'/>
    </method>
    <method name='GetStatus'>
      <arg name='status' type='a{sv}' direction='out'/>
    </method>
    <!-- Returns when the host has begun to end. -->
    <method name='Stop'/>
    <!-- event: started, stopped, prepared, failed; empty texts where there is nothing to say. -->
    <signal name='RecordEvent'>
      <arg name='event' type='s'/>
      <arg name='file' type='s'/>
      <arg name='reason' type='s'/>
    </signal>
    <!-- event: taken, done, failed, started. -->
    <signal name='SnapshotEvent'>
      <arg name='event' type='s'/>
      <arg name='files' type='as'/>
      <arg name='reason' type='s'/>
    </signal>
    <property name='Version' type='s' access='read'/>
    <property name='Instance' type='s' access='read'/>
    <property name='Mode' type='s' access='read'/>
    <property name='Streaming' type='b' access='read'/>
    <property name='Recording' type='b' access='read'/>
    <property name='TakingPicture' type='b' access='read'/>
    <property name='MediaFolder' type='s' access='read'/>
    <property name='RtspUri' type='s' access='read'/>
  </interface>
</node>
)";

GDBusInterfaceInfo *control_interface ()
{
  static const vorn::Owned<GDBusNodeInfo, g_dbus_node_info_unref> node (
      g_dbus_node_info_new_for_xml (introspection_xml, nullptr));
  return node ? node->interfaces[0] : nullptr;
}

static constexpr const char *error_names[] = {"Failed", "Busy", "Refused", "Invalid", "TimedOut"};
static constexpr char error_prefix[] = "org.vorn.Host1.Error.";

std::string control_error_name (HostErrorCode code)
{
  return std::string (error_prefix) + error_names[static_cast<size_t> (code)];
}

bool control_error_code (const std::string &name, HostErrorCode *code)
{
  for (size_t i = 0; i < std::size (error_names); i++)
    if (name == std::string (error_prefix) + error_names[i]) {
      *code = static_cast<HostErrorCode> (i);
      return true;
    }
  return false;
}

std::string control_address (const std::string &socket_path)
{
  const vorn::OwnedString escaped (g_dbus_address_escape_value (socket_path.c_str ()));
  return std::string ("unix:path=") + escaped.get ();
}
