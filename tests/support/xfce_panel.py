"""Xfce's panel with nothing but a status bar, along the upper edge of the screen."""

import pathlib

COMMAND = ["xfce4-panel", "--disable-wm-check"]
CHANNEL = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array"><value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="length" type="uint" value="100"/>
      <property name="size" type="uint" value="28"/>
      <property name="plugin-ids" type="array"><value type="int" value="1"/><value type="int" value="2"/></property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="separator">
      <property name="expand" type="bool" value="true"/><property name="style" type="uint" value="0"/>
    </property>
    <property name="plugin-2" type="string" value="systray"/>
  </property>
</channel>
"""


def configure(home):
    """For the first panel that is started with this home folder."""
    channel = pathlib.Path(home, ".config/xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml")
    channel.parent.mkdir(parents=True, exist_ok=True)
    channel.write_text(CHANNEL, encoding="utf-8")
