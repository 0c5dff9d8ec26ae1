<?xml version="1.0" encoding="UTF-8"?>
<!-- Makes the description of the windows for GtkBuilder out of the one for libglade. What no window of ours uses yet
     stops it, rather than being lost. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output encoding="UTF-8" indent="yes"/>
  <xsl:strip-space elements="glade-interface widget child packing accessibility"/>

  <xsl:template match="/glade-interface">
    <interface>
      <requires lib="gtk+" version="2.16"/>
      <xsl:apply-templates/>
    </interface>
  </xsl:template>

  <!-- libglade gives a widget its identifier as its name, too. -->
  <xsl:template match="widget">
    <object class="{@class}" id="{@id}">
      <property name="name"><xsl:value-of select="@id"/></property>
      <xsl:apply-templates select="property|signal"/>
      <xsl:apply-templates select="accessibility"/>
      <xsl:apply-templates select="*[not(self::property or self::signal or self::accessibility)]"/>
    </object>
  </xsl:template>

  <xsl:template match="child[not(@*)]">
    <child>
      <!-- A role that only looks like a property of the place in the container. -->
      <xsl:if test="packing/property[@name='type']">
        <xsl:attribute name="type">
          <xsl:value-of select="substring-before(concat(packing/property[@name='type'], '_item'), '_item')"/>
        </xsl:attribute>
      </xsl:if>
      <xsl:apply-templates/>
    </child>
  </xsl:template>

  <xsl:template match="packing">
    <xsl:if test="property[@name!='type']">
      <packing><xsl:apply-templates select="property[@name!='type']"/></packing>
    </xsl:if>
  </xsl:template>

  <xsl:template match="property|atkproperty">
    <property>
      <xsl:copy-of select="@*"/>
      <xsl:attribute name="name">
        <xsl:choose>
          <xsl:when test="@name='tooltip'">tooltip_text</xsl:when>
          <xsl:when test="starts-with(@name, 'AtkObject::')"><xsl:value-of select="substring(@name, 12)"/></xsl:when>
          <xsl:otherwise><xsl:value-of select="@name"/></xsl:otherwise>
        </xsl:choose>
      </xsl:attribute>
      <xsl:value-of select="."/>
    </property>
  </xsl:template>

  <xsl:template match="signal[not(@object)]">
    <xsl:copy-of select="."/>
  </xsl:template>

  <xsl:template match="accessibility">
    <child internal-child="accessible">
      <object class="AtkObject" id="{../@id}_accessible"><xsl:apply-templates/></object>
    </child>
  </xsl:template>

  <xsl:template match="*">
    <xsl:message terminate="yes">No translation for &lt;<xsl:value-of select="name()"/>&gt; in <xsl:value-of
      select="ancestor::widget/@id"/></xsl:message>
  </xsl:template>
</xsl:stylesheet>
