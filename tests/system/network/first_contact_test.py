#!/usr/bin/python3
"""Usage: first_contact_test.py VEXIL3D MUSIC_PROGRAM

Two computers on one network, as their users meet them first: nothing is set but what the panel sets.
"""

import network_bed
from network_bed import hearing, is_release, note_off, note_on, to


class FirstContactTest(network_bed.NetworkTest):
    @staticmethod
    def counted(computer, side):
        """Messages of one side of the computer's only port."""
        return computer.status()["ports"][0][side]["messages"]

    def test_a_note_gets_from_an_output_here_to_an_input_there(self):
        laptop, studio = self.computers("laptop", "studio")
        laptop.store(to(studio, 0))
        studio.store(hearing(0))
        heard = self.ears_of(studio)
        player = self.player_on(laptop)
        self.wait_heard_there(laptop, 0, "output")
        self.wait_carried(heard, 0, player.write)
        written, read = self.counted(laptop, "output"), self.counted(studio, "input")
        self.assertEqual(laptop.listed(), ["studio"])
        self.assertEqual(studio.listed(), ["laptop"])

        messages = [note_on(60), note_off(60), note_on(64)]
        player.write(*messages)
        heard.wait_heard(*messages)

        session, back = laptop.session("studio"), studio.session("laptop")
        for told in (session, back):
            self.assertEqual((told["state"], told["problem"], told["interface"]), ("up", "", "net0"))
        self.assertTrue(studio.is_at(session["address"]), session["address"])
        self.assertTrue(laptop.is_at(back["address"]), back["address"])
        self.assertEqual(session["ways"], [{"from": 11, "to": 11, "incoming": False, "test": False, "problem": ""}])
        self.assertEqual(back["ways"], [{"from": 11, "to": 11, "incoming": True, "test": False, "problem": ""}])
        self.assertEqual(session["key"], studio.status()["network"]["key"])
        output = laptop.status()["ports"][0]["output"]
        self.assertEqual((output["route"], output["routeProblem"]), ("remote", ""))
        self.assertEqual(self.counted(laptop, "output"), written + 3)
        self.assertEqual(self.counted(studio, "input"), read + 3)

        # What still sounds at the end of the laptop's service is let go.
        heard.forget()
        self.assertEqual(laptop.service.end(), 0)
        heard.wait(lambda: any(is_release(each) and each[1] == 64 for each in heard.heard()), "the release")
        self.wait(lambda: heard.sounding() == "", "silence")


if __name__ == "__main__":
    network_bed.main(needs_ears=True)
