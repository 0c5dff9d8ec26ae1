<?xml version="1.0" encoding="UTF-8"?>
<!-- From what cmark makes of a page of docs/, in an element "page" with the attribute "language", to a whole page: with
     a head, with names for the headings that links go to, and with links to the other pages in their new form. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="html" encoding="UTF-8" doctype-system="about:legacy-compat" indent="no"/>
  <xsl:variable name="capitals">ABCDEFGHIJKLMNOPQRSTUVWXYZАБВГДЕЁЖЗИЙКЛМНОПРСТУФХЦЧШЩЪЫЬЭЮЯ </xsl:variable>
  <xsl:variable name="small">abcdefghijklmnopqrstuvwxyzабвгдеёжзийклмнопрстуфхцчшщъыьэюя-</xsl:variable>

  <xsl:template match="/page">
    <html lang="{@language}">
      <head>
        <title>gtk-tarnel: <xsl:value-of select="h1[1]"/></title>
        <meta name="viewport" content="width=device-width"/>
        <style>
          body { max-width: 50em; margin: 2em auto; padding: 0 1em; font-family: sans-serif; line-height: 1.4 }
          img { max-width: 100% }
          table { border-collapse: collapse }
          th, td { border: 1px solid #bbb; padding: 0.3em 0.6em; text-align: left; vertical-align: top }
          pre, code { background: #f2f2f2 }
          pre { padding: 0.6em; overflow: auto }
        </style>
      </head>
      <body>
        <xsl:apply-templates/>
      </body>
    </html>
  </xsl:template>

  <!-- The names that links in the sources use: small letters, hyphens for blanks, no punctuation. -->
  <xsl:template match="h1|h2|h3">
    <xsl:copy>
      <xsl:attribute name="id">
        <xsl:value-of select="translate(translate(., '.,:;!?()', ''), $capitals, $small)"/>
      </xsl:attribute>
      <xsl:apply-templates/>
    </xsl:copy>
  </xsl:template>

  <xsl:template match="a/@href[contains(., '.md') and not(contains(., '/'))]">
    <xsl:attribute name="href">
      <xsl:value-of select="concat(substring-before(., '.md'), '.html', substring-after(., '.md'))"/>
    </xsl:attribute>
  </xsl:template>

  <xsl:template match="@*|node()">
    <xsl:copy>
      <xsl:apply-templates select="@*|node()"/>
    </xsl:copy>
  </xsl:template>
</xsl:stylesheet>
