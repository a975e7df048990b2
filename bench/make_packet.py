#!/usr/bin/python3
"""Writes an XMP packet with a speech transcription, as XMP toolkits print one: an element a line,
three blanks a level. A word takes about 420 bytes and 18 nodes. Equal arguments give equal bytes.
"""

import argparse

HEAD = """<?xpacket begin="\ufeff" id="W5M0MpCehiHzreSzNTczkc9d"?>
<x:xmpmeta xmlns:x="adobe:ns:meta/">
   <rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
      <rdf:Description rdf:about=""
            xmlns:xmpDM="http://ns.adobe.com/xmp/1.0/DynamicMedia/">
         <xmpDM:duration rdf:parseType="Resource">
            <xmpDM:value>100</xmpDM:value>
            <xmpDM:scale>1/2997</xmpDM:scale>
         </xmpDM:duration>
         <xmpDM:startTimecode rdf:parseType="Resource">
            <xmpDM:timeFormat>2997DropTimecode</xmpDM:timeFormat>
            <xmpDM:timeValue>01:00:00;00</xmpDM:timeValue>
         </xmpDM:startTimecode>
         <xmpDM:Tracks>
            <rdf:Bag>
               <rdf:li rdf:parseType="Resource">
                  <xmpDM:trackName>Speech Transcription</xmpDM:trackName>
                  <xmpDM:trackType>Speech</xmpDM:trackType>
                  <xmpDM:frameRate>f1000</xmpDM:frameRate>
                  <xmpDM:markers>
                     <rdf:Seq>
"""
TAIL = """                     </rdf:Seq>
                  </xmpDM:markers>
               </rdf:li>
            </rdf:Bag>
         </xmpDM:Tracks>
      </rdf:Description>
   </rdf:RDF>
</x:xmpmeta>
<?xpacket end="w"?>
"""
VOCABULARY = """hello and welcome to the first cut of our little film about rivers mountains
conversation edited""".split()
LONGEST_TURN = 37  # words that a speaker says before the next one speaks
CHUNK = 1_000  # words written at once


def marker(i, speaker):
    return f"""                        <rdf:li rdf:parseType="Resource">
                           <xmpDM:startTime>{i * 300}</xmpDM:startTime>
                           <xmpDM:duration>250</xmpDM:duration>
                           <xmpDM:name>{VOCABULARY[i * 7 % len(VOCABULARY)]}</xmpDM:name>
                           <xmpDM:speaker>Speaker {speaker}</xmpDM:speaker>
                           <xmpDM:probability>{50 + i % 50}</xmpDM:probability>
                        </rdf:li>
"""


def make_packet(path, words, speakers=6):
    """The speakers take turns; there is at least one turn for each where words suffice."""
    turn = min(LONGEST_TURN, max(1, words // speakers))
    with open(path, "w", encoding="utf-8", newline="\n") as packet:
        packet.write(HEAD)
        for start in range(0, words, CHUNK):
            chunk = range(start, min(words, start + CHUNK))
            packet.write("".join(marker(i, 1 + i // turn % speakers) for i in chunk))
        packet.write(TAIL)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("path", help="the file to write")
    parser.add_argument("words", type=int)
    parser.add_argument("--speakers", type=int, default=6, help="distinct speakers (default: 6)")
    options = parser.parse_args()
    make_packet(options.path, options.words, options.speakers)
