// placeholder: written next
